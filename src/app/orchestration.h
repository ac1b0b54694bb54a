#pragma once

#include <cstdint>

#include "fwlib/fwlib_status.h"
#include "run/firmware_type.h"

namespace qrx {

// Initialises the library for this controller, runs the download loop that
// suits the file type and -nocc, reports any status and releases the
// library context. true: nothing more was needed or the download completed.
bool OrchestrateDownload(const uint8_t* versionData, uint8_t versionLength,
                         FirmwareFileType fileType);

// The console message for a library status, or nothing.
void ReportLibraryStatus(FwLibStatus status);

}  // namespace qrx
