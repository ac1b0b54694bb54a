#include "fwlib/fwdat.h"
#include "fwlib/fwlib_classify.h"
#include "fwlib/image_key.h"
#include "platform/trace.h"

namespace qrx {

FwLibStatus FwLibLookupImage(FwLibContext* context) {
  if (context == nullptr || context->magic != kFwLibContextMagic) return kFwLibInvalidParameter;
  const std::optional<uint8_t> kind = FwdatKindForMode(context->isOperational);
  if (!kind) return kFwLibInvalidParameter;

  FwImageKey imageKey{};
  const uint8_t* key = context->versionData;
  uint32_t keyLength = context->versionLength;
  if (context->isTlvForm != 0) {
    FwLibBuildImageKey(context, &imageKey);
    key = imageKey.data();
    keyLength = kFwImageKeySize;
  }

  uint8_t* image = nullptr;
  uint32_t imageSize = context->imageSize;
  // The query always refuses, so this path always ends in 14. Intended.
  if (FwdatQueryImage(*kind, key, keyLength, &image, &imageSize) != kFwdatOk) {
    TraceRecord(kTraceLevelError, "FWLIB", "no loaded container holds the image");
    if (context->imageBuffer != nullptr) {
      context->imageBuffer = nullptr;
      context->imageSize = 0;
    }
    return kFwLibIoFailure;
  }
  context->imageSize = imageSize;
  context->imageBuffer = image;
  context->imageData = image;
  context->imageOffset = 0;
  context->imageBorrowed = 1;
  return kFwLibSuccess;
}

}  // namespace qrx
