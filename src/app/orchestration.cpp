#include "app/orchestration.h"

#include "app/options.h"
#include "app/timing.h"
#include "fwlib/download_loops.h"
#include "fwlib/fwlib_context.h"
#include "hci/vendor_commands.h"
#include "platform/console.h"

namespace qrx {

namespace {

constexpr uint8_t kSearchFirmwareFiles = 1;
constexpr uint8_t kFirstModernHardwareVariant = 11;
constexpr size_t kLegacyHardwareVariantIndex = 1;

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
         versionData[kLegacyHardwareVariantIndex] < kFirstModernHardwareVariant;
}

}  // namespace

bool OrchestrateDownload(const uint8_t* versionData, uint8_t versionLength,
                         FirmwareFileType fileType) {
  FwLibContext* context = nullptr;
  StartTimer(RunTimer::kPatchLibInit);
  FwLibStatus status = FwLibInitialize(versionData, versionLength, kSearchFirmwareFiles, &context);
  StopTimer(RunTimer::kPatchLibInit);

  if (status == kFwLibPatchCurrent) {
    ReleaseIfAny(context);
    return true;
  }
  // An I/O failure while initialising is reported as an invalid event; intended.
  if (status == kFwLibIoFailure) status = kFwLibInvalidEvent;
  if (status != kFwLibSuccess || context == nullptr) {
    ReportLibraryStatus(status);  // silent for 15: another patch is loaded
    ReleaseIfAny(context);
    return false;
  }

  ConsolePrintf("Initialization complete.\n");
  if (g_runOptions.noCommandComplete) (void)WriteDdcCceBlock();

  FwLibStatus loopStatus = kFwLibInvalidParameter;
  switch (fileType) {
    case FirmwareFileType::kFwdat:
      ConsolePrintf("Downloading FWDAT file...\n");
      loopStatus = RunSignedLoop(context);
      break;
    case FirmwareFileType::kSfi:
      ConsolePrintf("Downloading SFI file...\n");
      loopStatus = RunSignedLoop(context);
      break;
    case FirmwareFileType::kBseq:
      ConsolePrintf("Downloading BSEQ file...\n");
      loopStatus = DownloadBseq(context, BseqNeedsManufacturerMode(versionData, versionLength));
      break;
  }

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
