#pragma once

#include <cstdint>

#include "fwlib/fwlib_status.h"

namespace qrx {

// Firmware file types, chosen by the run driver from the -fw extension.
enum class FirmwareFileType : int {
  kFwdat = 0,
  kSfi = 1,
  kBseq = 2,
};

// Initialises the library for this controller, runs the download loop that
// suits the file type and -nocc, reports any status and releases the
// library context. true: nothing more was needed or the download completed.
bool OrchestrateDownload(const uint8_t* versionData, uint8_t versionLength,
                         FirmwareFileType fileType);

// The console message for a library status, or nothing.
void ReportLibraryStatus(FwLibStatus status);

}  // namespace qrx
