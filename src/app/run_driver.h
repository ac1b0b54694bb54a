#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "hci/hci_exchange.h"

namespace qrx {

// One whole run from opening the link to closing it, with the options that
// ParseCommandLine left in g_runOptions. true when the controller needed
// nothing more or the download completed.
bool RunDownload();

// Whether a Read Version event (H4 byte first) calls for the secure boot
// parameters: by the hardware variant and revision bytes.
bool WantsSecureBootParams(const std::array<uint8_t, kEventBufferSize>& event);

// What the run's link is, for the record: the serial device it opens, or the
// server's host:port. Empty before the command line was read.
std::string LinkName();

}  // namespace qrx
