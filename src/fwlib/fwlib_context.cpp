#include "fwlib/fwlib_context.h"

#include "fwlib/firmware_location.h"
#include "fwlib/fwlib_classify.h"
#include "fwlib/version_answer.h"
#include "platform/trace.h"

namespace qrx {

namespace {

constexpr const char* kTag = "FWLIB";

// Legacy controllers only: a ROM-patched part whose loaded image carries the
// patch it already has (6), or another patch over its own (15).
FwLibStatus CheckLegacyPatch(const FwLibContext& context) {
  if (context.versionData == nullptr) return kFwLibInvalidParameter;
  const bool romPatched =
      AnswerByte(context, kLegacyHardwareVariantAt) < kFirstModernHardwareVariant;
  TraceRecord(kTraceLevelInfo, kTag, "%s", romPatched ? "Legacy(ROM)" : "Modern(RAM)");
  if (!romPatched || context.imageOffset != 0) return kFwLibSuccess;

  uint8_t current = 0;
  uint8_t otherLoaded = 0;
  const FwLibStatus status = FwLibCheckPatchLevel(&context, &current, &otherLoaded);
  if (status != kFwLibSuccess) return status;
  if (current != 0) return kFwLibPatchCurrent;
  if (otherLoaded != 0) return kFwLibOtherPatchLoaded;
  return kFwLibSuccess;
}

// Finds the image and, for the legacy form, compares patch levels. A
// successful lookup in a loaded container ends here at once.
FwLibStatus LoadAndCheck(FwLibContext& context, uint8_t searchFiles) {
  FwLibStatus status = kFwLibSuccess;
  if (searchFiles == 1) {
    const uint8_t bootloader = context.isOperational != 1 ? 1 : 0;
    status = FwLibLocateFirmware(&context, bootloader);
    if (status != kFwLibSuccess) return status;
  } else {
    status = FwLibLookupImage(&context);
    if (status == kFwLibSuccess) return status;
    // A legacy controller drops the failure and goes on to the patch check
    // without an image.
    if (context.isTlvForm != 0) return status;
  }
  return context.isTlvForm != 0 ? kFwLibSuccess : CheckLegacyPatch(context);
}

}  // namespace

FwLibStatus FwLibInitialize(const uint8_t* answer, uint8_t answerLength, uint8_t searchFiles,
                            FwLibContext** result) {
  if (answer == nullptr || result == nullptr) return kFwLibInvalidParameter;
  FwLibContext* context = nullptr;
  FwLibStatus status = FwLibClassify(answer, answerLength, &context);
  if (status != kFwLibSuccess || context == nullptr) {
    *result = nullptr;
    // An answer of no accepted length classifies as 0 without a record.
    return status != kFwLibSuccess ? status : kFwLibInvalidEvent;
  }
  *result = context;

  status = LoadAndCheck(*context, searchFiles);

  if (status != kFwLibSuccess && status != kFwLibPatchCurrent && status != kFwLibOtherPatchLoaded) {
    // Frees the record directly rather than through the release. The
    // answer copy and an owned image go with it: nothing else holds them.
    delete[] context->versionData;
    if (context->imageBorrowed == 0) delete[] context->imageBuffer;
    delete context;
    *result = nullptr;
  }
  TraceRecord(kTraceLevelInfo, kTag, "initialise: status %u", status);
  return status;
}

FwLibStatus FwLibRelease(FwLibContext* context) {
  if (context == nullptr || context->magic != kFwLibContextMagic) return kFwLibInvalidParameter;
  if (context->imageBuffer != nullptr && context->imageBorrowed == 0) {
    delete[] context->imageBuffer;
    context->imageBuffer = nullptr;
  }
  delete[] context->versionData;
  context->versionData = nullptr;
  context->magic = 0;
  delete context;
  return kFwLibSuccess;
}

}  // namespace qrx
