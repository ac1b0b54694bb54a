// The three fragment iterators and their dispatcher, each walked to the end of
// an image, into a buffer of exactly the capacity they are given: a command
// longer than its room, or a read past the image, is a finding.
//
// Input: one selector byte (bits 0-1 the signature scheme, 2 or 3 being out of
// range; bit 2 a small capacity taken from the next byte), then the image.
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "fake_world.h"
#include "fwlib/fragment_iterators.h"
#include "fwlib/fwlib_context.h"
#include "platform/console.h"

namespace {

using Iterator = qrx::FwLibStatus (*)(qrx::FwLibContext*, uint8_t*, uint32_t*);

struct Walk {
  Iterator next;
  uint8_t isOperational;
  uint8_t isTlvForm;
  uint32_t capacity;
};

constexpr uint32_t kSignedRoom = 258;
constexpr uint32_t kBseqRoom = 259;

constexpr std::array<Walk, 6> kWalks = {{
    {qrx::NextBseqCommand, 1, 0, kBseqRoom},
    {qrx::NextSfiCommand, 0, 0, kSignedRoom},
    {qrx::NextDualSignedCommand, 0, 1, kSignedRoom},
    {qrx::GetNextCommand, 1, 1, kBseqRoom},
    {qrx::GetNextCommand, 0, 0, kSignedRoom},
    {qrx::GetNextCommand, 0, 1, kSignedRoom},
}};

void WalkToTheEnd(const Walk& walk, const std::vector<uint8_t>& image, uint8_t scheme,
                  uint32_t capacity) {
  std::array<uint8_t, qrx::kTlvBootloaderVersionLength> answer{};
  answer[qrx::kSignatureSchemeIndex] = scheme;
  // Exactly the image's bytes on the heap, so a read past them is seen.
  auto* bytes = static_cast<uint8_t*>(std::malloc(image.empty() ? 1 : image.size()));
  if (!image.empty()) std::copy(image.begin(), image.end(), bytes);
  qrx::FwLibContext context{};
  context.magic = qrx::kFwLibContextMagic;
  context.versionData = answer.data();
  context.versionLength = qrx::kTlvBootloaderVersionLength;
  context.isTlvForm = walk.isTlvForm;
  context.isOperational = walk.isOperational;
  context.imageSize = static_cast<uint32_t>(image.size());
  context.imageData = bytes;
  std::vector<uint8_t> command(capacity);
  // Every call moves forward by at least one byte or stops.
  for (size_t step = 0; step <= image.size(); ++step) {
    uint32_t length = capacity;
    const qrx::FwLibStatus status = walk.next(&context, command.data(), &length);
    if (status != qrx::kFwLibSuccess) break;
    if (length > capacity) std::abort();  // claims more than the room it had
  }
  std::free(bytes);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const qrx::ConsoleCapture console;  // the console text is kept in memory, unread
  if (size < 2) return 0;
  const uint8_t selector = data[0];
  const uint8_t scheme = selector & 0x03;
  const bool smallRoom = (selector & 0x04) != 0;
  const uint32_t room = data[1];
  const std::vector<uint8_t> image(data + 2, data + size);
  for (const Walk& walk : kWalks) {
    WalkToTheEnd(walk, image, scheme, smallRoom ? room : walk.capacity);
  }
  return 0;
}
