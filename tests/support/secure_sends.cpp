#include "support/secure_sends.h"

namespace qrx::test {

std::vector<std::vector<uint8_t>> SecureSendCommands(std::span<const uint8_t> image, uint8_t scheme,
                                                     bool twoBlocks) {
  struct Piece {
    uint8_t type;
    size_t at, size;
  };
  // The key field (4 bytes at 384) is never sent.
  std::vector<Piece> pieces = {{0, 0, 128}, {3, 128, 252}, {3, 380, 4}, {2, 388, 252}, {2, 640, 4}};
  if (scheme != 0) pieces = {{0, 644, 128}, {3, 772, 96}, {2, 868, 96}};
  for (size_t at = twoBlocks ? 964 : 644, size = 0; at < image.size(); at += size, size = 0) {
    do size += 3 + image[at + size + 2];
    while (size % 4 != 0);
    pieces.push_back({1, at, size});
  }
  std::vector<std::vector<uint8_t>> commands;
  for (const auto& [type, from, size] : pieces) {
    commands.push_back({0x09, 0xFC, static_cast<uint8_t>(size + 1), type});
    commands.back().insert(commands.back().end(), image.begin() + from,
                           image.begin() + from + size);
  }
  return commands;
}

}  // namespace qrx::test
