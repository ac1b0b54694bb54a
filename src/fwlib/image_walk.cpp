#include "fwlib/image_walk.h"

#include <array>

#include "fwlib/fragment_iterators.h"
#include "fwlib/fwlib_context.h"

namespace qrx {
namespace {

// Room for the largest command each iterator writes.
constexpr uint32_t kSignedCapacity = 258;
constexpr uint32_t kBseqCapacity = 259;

}  // namespace

ImageWalkEnd WalkImageCommands(std::span<const uint8_t> image, ImageWalkMode mode,
                               const ImageWalkVisitor& visit) {
  std::array<uint8_t, kTlvBootloaderVersionLength> version{};
  version[kSignatureSchemeIndex] = mode.scheme;
  FwLibContext context{};
  context.magic = kFwLibContextMagic;
  context.versionData = version.data();
  context.versionLength = static_cast<uint8_t>(version.size());
  context.isTlvForm = mode.twoBlocks ? 1 : 0;
  context.imageBorrowed = 1;
  context.isOperational = mode.operational ? 1 : 0;
  context.imageSize = static_cast<uint32_t>(image.size());
  context.imageData = image.data();

  ImageWalkEnd end;
  std::array<uint8_t, kBseqCapacity> command{};
  for (;;) {
    uint32_t length = mode.operational ? kBseqCapacity : kSignedCapacity;
    end.status = GetNextCommand(&context, command.data(), &length);
    end.stopOffset = context.imageOffset;
    if (end.status != kFwLibSuccess) return end;
    ++end.commands;
    if (visit) visit(std::span<const uint8_t>(command.data(), length), context.imageOffset);
  }
}

bool HasSecondSignatureBlock(std::span<const uint8_t> image) {
  return image.size() > kFirstBlockEnd && image[kFirstBlockEnd] == kSecondBlockMarker;
}

bool ImageWalksClean(std::span<const uint8_t> image, bool operational) {
  const bool twoBlocks = !operational && HasSecondSignatureBlock(image);
  for (uint8_t scheme = 0; scheme <= (twoBlocks ? 1 : 0); ++scheme) {
    const ImageWalkEnd end = WalkImageCommands(image, {operational, twoBlocks, scheme});
    if (end.status != kFwLibImageExhausted) return false;
  }
  return true;
}

}  // namespace qrx
