#include <cstdint>

#include "fwlib/fwlib_classify.h"
#include "fwlib/version_answer.h"
#include "platform/trace.h"

namespace qrx {

namespace {

// The first command: two opcode bytes, a length byte, its parameters. The
// image's patch number is the byte right after it.
constexpr uint64_t kCommandLengthAt = 2;
constexpr uint64_t kCommandHeaderBytes = 3;
constexpr uint64_t kShortestImage = 4;

const uint8_t* const kNoImage = reinterpret_cast<const uint8_t*>(~uintptr_t{0});

}  // namespace

FwLibStatus FwLibCheckPatchLevel(const FwLibContext* context, uint8_t* current,
                                 uint8_t* otherLoaded) {
  if (context == nullptr || current == nullptr || otherLoaded == nullptr ||
      context->magic != kFwLibContextMagic) {
    return kFwLibInvalidParameter;
  }
  // 64-bit sums: a 32-bit offset and length cannot overflow them.
  const uint64_t offset = context->imageOffset;
  const uint64_t size = context->imageSize;
  if (offset + kShortestImage > size) return kFwLibInvalidEvent;
  const uint8_t* data = context->imageData;
  if (data == kNoImage || data == nullptr) return kFwLibInvalidEvent;

  // Positions count from the image's first byte, and the length byte is
  // read at position 2 whatever the offset: the check only runs while the
  // offset is 0. Intended.
  const uint8_t* image = data - offset;
  const uint64_t end = offset + image[kCommandLengthAt] + kCommandHeaderBytes;
  if (end >= size) return kFwLibInvalidEvent;  // past the end, or nothing follows

  const uint8_t imagePatch = image[end];
  const uint8_t controllerPatch = AnswerByte(*context, kLegacyPatchNumberAt);
  *current = 1;
  *otherLoaded = 0;
  if (imagePatch > controllerPatch) {
    *current = 0;
    if (controllerPatch != 0) *otherLoaded = 1;
  }
  TraceRecord(kTraceLevelInfo, "FWLIB", "patch: image %u, controller %u", imagePatch,
              controllerPatch);
  return kFwLibSuccess;
}

}  // namespace qrx
