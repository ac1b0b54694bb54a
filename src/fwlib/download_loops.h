#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "fwlib/fwlib_context.h"
#include "fwlib/fwlib_status.h"

namespace qrx {

// Manufacturer-mode command (vendor 0xFC11 with two parameters). The exit
// form's last byte is the reset request that ExitManufacturerMode ORs into.
constexpr size_t kManufacturerModeCommandSize = 5;
constexpr size_t kManufacturerModeResetIndex = 4;
extern const std::array<uint8_t, kManufacturerModeCommandSize> kEnterManufacturerModeCommand;
// One process-wide record: bits ORed in by an exit stay for every later exit
// of the run, as designed.
extern std::array<uint8_t, kManufacturerModeCommandSize> g_exitManufacturerModeCommand;
// Puts the exit record back to its initial value (tests, repeated runs).
void RestoreExitManufacturerModeCommand();

// Signed image (SFI or container entry), each fragment answered by a Command
// Complete. 0 success; 12 bad or missing event; 14 failed send; or the
// iterator's status.
FwLibStatus DownloadSignedWithEvents(FwLibContext* context);
// Signed image sent back to back with no event per fragment (-nocc).
FwLibStatus DownloadSignedNoEvents(FwLibContext* context);
// Recorded command sequence, each command checked against its own event;
// optionally inside manufacturer mode. 4 on success.
FwLibStatus DownloadBseq(FwLibContext* context, bool useManufacturerMode);

// 0 success, -1 failure; a failed event read passes the read's own result back.
int32_t EnterManufacturerMode();
// When setResetBits, ORs 2 (secondBit) or 1 into the reset request first.
int32_t ExitManufacturerMode(bool setResetBits, bool secondBit);

}  // namespace qrx
