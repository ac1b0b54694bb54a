#include "app/orchestration.h"

#include "app/options.h"
#include "app/run_report.h"
#include "app/timing.h"
#include "fwlib/download_loops.h"
#include "fwlib/fwlib_context.h"
#include "fwlib/version_answer.h"
#include "hci/vendor_commands.h"
#include "platform/console.h"
#include "platform/error_text.h"
#include "platform/file_io.h"
#include "run/download_progress.h"

namespace qrx {

namespace {

constexpr uint8_t kSearchFirmwareFiles = 1;

void ReleaseIfAny(FwLibContext* context) {
  if (context != nullptr) FwLibRelease(context);
}

FwLibStatus RunSignedLoop(FwLibContext* context) {
  return g_runOptions.noCommandComplete ? DownloadSignedNoEvents(context)
                                        : DownloadSignedWithEvents(context);
}

// Legacy ROM-patched parts take their BSEQ inside manufacturer mode; TLV
// answers come from parts that never need it.
bool BseqNeedsManufacturerMode(const uint8_t* versionData, uint8_t versionLength) {
  return versionLength == kLegacyVersionLength &&
         versionData[kLegacyHardwareVariantAt] < kFirstModernHardwareVariant;
}

// A --firmware file the library could not open is named, with the system's
// reason, before the designed no-firmware message.
void ExplainUnreadableFirmwareFile() {
  const char* path = g_runOptions.firmwareFile;
  if (path == nullptr) return;
  FileHandle handle = kNoFileHandle;
  const int error = FileOpenForReading(path, &handle);
  if (error == 0) {
    FileClose(handle);
    return;
  }
  ConsolePrintf("qrxbpl: cannot read the firmware file %s: %s\n", path, SystemErrorText(error));
}

FwLibStatus RunLoop(FwLibContext* context, FirmwareFileType fileType, const uint8_t* versionData,
                    uint8_t versionLength) {
  switch (fileType) {
    case FirmwareFileType::kFwdat:
      ConsolePrintf("Downloading FWDAT file...\n");
      return RunSignedLoop(context);
    case FirmwareFileType::kSfi:
      ConsolePrintf("Downloading SFI file...\n");
      return RunSignedLoop(context);
    case FirmwareFileType::kBseq:
      ConsolePrintf("Downloading BSEQ file...\n");
      return DownloadBseq(context, BseqNeedsManufacturerMode(versionData, versionLength));
  }
  return kFwLibInvalidParameter;
}

}  // namespace

bool OrchestrateDownload(const uint8_t* versionData, uint8_t versionLength,
                         FirmwareFileType fileType) {
  FwLibContext* context = nullptr;
  StartTimer(RunTimer::kPatchLibInit);
  FwLibStatus status = FwLibInitialize(versionData, versionLength, kSearchFirmwareFiles, &context);
  StopTimer(RunTimer::kPatchLibInit);
  RunReportLibraryStatus("initialize", status);

  if (status == kFwLibPatchCurrent) {
    ReleaseIfAny(context);
    return true;
  }
  // An I/O failure while initialising is reported as an invalid event; intended.
  if (status == kFwLibIoFailure) status = kFwLibInvalidEvent;
  if (status != kFwLibSuccess || context == nullptr) {
    if (status == kFwLibNoViableFirmware) ExplainUnreadableFirmwareFile();
    ReportLibraryStatus(status);  // silent for 15: another patch is loaded
    ReleaseIfAny(context);
    return false;
  }

  ConsolePrintf("Initialization complete.\n");
  RunReportLoadedFirmware(fileType, context->imageSize);
  if (g_runOptions.noCommandComplete) (void)WriteDdcCceBlock();

  ProgressBegin(context->imageSize);
  const FwLibStatus loopStatus = RunLoop(context, fileType, versionData, versionLength);
  ProgressEnd();
  RunReportLibraryStatus("download", loopStatus);

  if (loopStatus == kFwLibSuccess || loopStatus == kFwLibImageExhausted) {
    ConsolePrintf("Download complete.\n");
    FwLibRelease(context);
    return true;
  }
  ConsolePrintf("Download incomplete!\n");
  ReportLibraryStatus(loopStatus);
  FwLibRelease(context);
  return false;
}

}  // namespace qrx
