#pragma once

#include <cstdint>
#include <functional>
#include <span>

#include "fwlib/fwlib_status.h"

namespace qrx {

// Walks an image in memory with the download's own command dispatcher, over a
// context built as the loaders leave it: what a walk yields is what a download
// sends. Shared by the image inspector and the loader's check of a named file.

// Which iterator walks: BSEQ commands (operational) or the signed image's
// Secure Send fragments, with one or two signature blocks and the scheme that
// picks between the two.
struct ImageWalkMode {
  bool operational = false;
  bool twoBlocks = false;
  uint8_t scheme = 0;
};

struct ImageWalkEnd {
  FwLibStatus status = kFwLibSuccess;  // kFwLibImageExhausted: the walk reached the end
  uint32_t stopOffset = 0;             // where the image was when the walk ended
  uint32_t commands = 0;
};

// Called with each command (opcode first) and the image offset after it.
using ImageWalkVisitor = std::function<void(std::span<const uint8_t> command, uint32_t offset)>;

ImageWalkEnd WalkImageCommands(std::span<const uint8_t> image, ImageWalkMode mode,
                               const ImageWalkVisitor& visit = {});

// A signed image whose second signature block is marked after the first.
bool HasSecondSignatureBlock(std::span<const uint8_t> image);

// Whether every walk a download could take through the image reaches its end:
// both schemes of a two-block signed image, the one walk otherwise.
bool ImageWalksClean(std::span<const uint8_t> image, bool operational);

}  // namespace qrx
