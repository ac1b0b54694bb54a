// A serial device whose far end is a FakePeer: writes go to the peer, reads
// take what it queued, and an empty queue is a line that stays silent.
#include <algorithm>
#include <cerrno>
#include <cstring>

#include "fake_world.h"
#include "transport/serial_device_posix.h"

namespace qrx {

namespace {
constexpr int kFakeDescriptor = 7;
fuzz::FakeLineState g_line;

uint32_t RateOf(const SerialLineSettings& line) {
  uint32_t rate = 0;
  std::memcpy(&rate, line.storage.data(), sizeof rate);
  return rate;
}
}  // namespace

namespace fuzz {
const FakeLineState& SerialLine() {
  return g_line;
}
void ResetFakeSerialLine() {
  g_line = FakeLineState{};
}
}  // namespace fuzz

int SerialOpen(const char* /*path*/) {
  g_line.open = true;
  return kFakeDescriptor;
}

void SerialClose(int /*fd*/) {
  g_line.open = false;
}

bool SerialGetLine(int /*fd*/, SerialLineSettings& line) {
  line = SerialLineSettings{};
  return true;
}

bool SerialApplyLine(int /*fd*/, const SerialLineSettings& line) {
  g_line.appliedRate = RateOf(line);
  return true;
}

void SerialMakeRaw8N1(SerialLineSettings& line, uint32_t bitsPerSecond) {
  SerialSetLineRate(line, bitsPerSecond);
}

void SerialSetLineRate(SerialLineSettings& line, uint32_t bitsPerSecond) {
  std::memcpy(line.storage.data(), &bitsPerSecond, sizeof bitsPerSecond);
}

bool SerialSetRts(int /*fd*/, bool /*raised*/) {
  return true;
}

bool SerialPurge(int /*fd*/) {
  return true;
}

int64_t SerialWrite(int /*fd*/, const uint8_t* source, size_t count) {
  fuzz::FakePeer& peer = fuzz::SerialPeer();
  if (peer.onWrite) peer.onWrite(std::span<const uint8_t>(source, count));
  return static_cast<int64_t>(count);
}

int64_t SerialReadAvailable(int /*fd*/, uint8_t* destination, size_t count, int32_t waitMs) {
  fuzz::FakePeer& peer = fuzz::SerialPeer();
  while (!peer.incoming.empty() && peer.incoming.front().empty()) peer.incoming.pop_front();
  if (peer.incoming.empty()) {
    if (waitMs < 0) {
      errno = EIO;  // nothing will ever come: the far end is gone
      return -1;
    }
    fuzz::AdvanceFakeClockMs(waitMs);
    return 0;
  }
  std::vector<uint8_t>& piece = peer.incoming.front();
  const size_t take = std::min(count, piece.size());
  std::memcpy(destination, piece.data(), take);
  peer.delivered.insert(peer.delivered.end(), piece.begin(), piece.begin() + take);
  piece.erase(piece.begin(), piece.begin() + take);
  return static_cast<int64_t>(take);
}

}  // namespace qrx
