#include "download_script.h"

#include "image/fw_image.h"

namespace qrx::test {

namespace {

constexpr uint16_t kSecureSend = 0xFC09;

void Fragment(std::vector<Bytes>& out, uint8_t type, std::span<const uint8_t> data) {
  Bytes params(1, type);
  params.insert(params.end(), data.begin(), data.end());
  out.push_back(Command(kSecureSend, params));
}

}  // namespace

Bytes Command(uint16_t opcode, std::span<const uint8_t> params) {
  Bytes command = {static_cast<uint8_t>(opcode), static_cast<uint8_t>(opcode >> 8),
                   static_cast<uint8_t>(params.size())};
  command.insert(command.end(), params.begin(), params.end());
  return command;
}

Bytes Command(uint16_t opcode, std::initializer_list<uint8_t> params) {
  return Command(opcode, std::span<const uint8_t>(params.begin(), params.size()));
}

std::vector<Bytes> SecureSendCommands(std::span<const uint8_t> image, uint8_t scheme) {
  using namespace fwimage;
  std::vector<Bytes> out;
  size_t body = kFirstBlockSize;
  if (scheme == 0) {
    Fragment(out, 0, image.subspan(0, 128));
    Fragment(out, 3, image.subspan(128, 252));
    Fragment(out, 3, image.subspan(380, 4));
    Fragment(out, 2, image.subspan(388, 252));
    Fragment(out, 2, image.subspan(640, 4));
    if (image.size() >= kFirstBlockSize + kSecondBlockSize &&
        image[kFirstBlockSize] == kSecondBlockMarker) {
      body += kSecondBlockSize;
    }
  } else {
    Fragment(out, 0, image.subspan(644, 128));
    Fragment(out, 3, image.subspan(772, 96));
    Fragment(out, 2, image.subspan(868, 96));
    body += kSecondBlockSize;
  }
  while (body < image.size()) {
    size_t total = 0;
    do {
      total += 3 + image[body + total + 2];
    } while (total % 4 != 0);
    Fragment(out, 1, image.subspan(body, total));
    body += total;
  }
  return out;
}

}  // namespace qrx::test
