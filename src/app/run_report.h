#pragma once

#include <cstdint>
#include <span>

#include "fwlib/fwlib_status.h"
#include "run/firmware_type.h"

namespace qrx {

// The run report of --report FILE: a JSON summary for factory lines and CI
// farms, written on every path the process ends by. It is rewritten at each
// milestone of the run ("finished": false, no exit status), so a run ended by
// a signal leaves what it had reached. Without --report the calls below
// record nothing.

// Starts recording (the console among it) when --report was given, and
// writes the first checkpoint: a report that cannot be written is said on
// standard error (the file and the system's reason) before any link opens,
// and false is returned; the run is then refused.
bool RunReportBegin(int argc, const char* const* argv);

// A Read Version answer as the driver classified it (event bytes, H4 byte
// first): form "legacy", "tlv" or "short"; mode "bootloader", "operational" or "".
void RunReportVersionAnswer(std::span<const uint8_t> event, const char* form, const char* mode);

// The firmware the library loaded; also names it on a terminal (path, size).
void RunReportLoadedFirmware(FirmwareFileType type, uint32_t imageSize);

// A library status and the stage that returned it ("initialize", "download").
void RunReportLibraryStatus(const char* stage, FwLibStatus status);

// The download ran (timers started); timingShown: its table was printed.
void RunReportRunEnded(bool timingShown);

// Writes the report; a file that cannot be written is named with the
// system's reason on standard error. Returns false in that case, and the
// file keeps the last checkpoint that was written whole.
bool RunReportWrite(int exitStatus);

}  // namespace qrx
