#pragma once

// A signed image cut into the Secure Send commands a host sends for it,
// worked out apart from the loader's own code.

#include <cstdint>
#include <span>
#include <vector>

namespace qrx::test {

// The first block under scheme 0, the second (of a two-block image) under
// scheme 1, then the body, past the second block when there is one, in groups
// of whole commands that close on 4-byte multiples.
std::vector<std::vector<uint8_t>> SecureSendCommands(std::span<const uint8_t> image, uint8_t scheme,
                                                     bool twoBlocks);

}  // namespace qrx::test
