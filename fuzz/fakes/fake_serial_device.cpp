// A serial device whose far end is a FakePeer: writes go to the peer, reads
// take what it queued, and an empty queue is a line that stays silent.
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>

#include "fake_world.h"
#include "transport/link_release.h"
#include "transport/serial_device.h"

namespace qrx {

namespace {
constexpr SerialHandle kFakeDescriptor = 7;
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

std::string SerialDevicePathForNumber(int32_t portNumber) {
  return "COM" + std::to_string(portNumber);
}

std::string SerialDevicePathForName(const char* portName, bool /*scansComNumber*/) {
  return portName != nullptr && portName[0] == '/' ? portName : "";
}

SerialHandle SerialOpen(const char* /*path*/) {
  g_line.open = true;
  return kFakeDescriptor;
}

void SerialClose(SerialHandle /*port*/) {
  g_line.open = false;
}

void SerialAskLowLatency(SerialHandle /*port*/) {}

void RestoreSerialDriverAtOnce(intptr_t /*device*/, const SerialDriverState& /*state*/) {}

void ReleaseSerialDeviceAtOnce(intptr_t /*device*/) {
  g_line.open = false;
}

bool SerialBuildLine(SerialHandle /*port*/, SerialLineSettings& line, uint32_t bitsPerSecond) {
  line = SerialLineSettings{};
  SerialSetLineRate(line, bitsPerSecond);
  return true;
}

bool SerialGetLine(SerialHandle /*port*/, SerialLineSettings& line) {
  line = SerialLineSettings{};
  return true;
}

bool SerialApplyLine(SerialHandle /*port*/, const SerialLineSettings& line) {
  g_line.appliedRate = RateOf(line);
  return true;
}

void SerialSetLineRate(SerialLineSettings& line, uint32_t bitsPerSecond) {
  std::memcpy(line.storage.data(), &bitsPerSecond, sizeof bitsPerSecond);
}

bool SerialSetRts(SerialHandle /*port*/, bool /*raised*/) {
  return true;
}

bool SerialPurge(SerialHandle /*port*/) {
  return true;
}

bool SerialGetTimeouts(SerialHandle port, CommTimeouts& /*words*/) {
  return port != kNoSerialDevice;
}

bool SerialSetTimeouts(SerialHandle /*port*/, const CommTimeouts& /*words*/) {
  return true;
}

int64_t SerialWrite(SerialHandle /*port*/, const uint8_t* source, size_t count) {
  fuzz::FakePeer& peer = fuzz::SerialPeer();
  if (peer.onWrite) peer.onWrite(std::span<const uint8_t>(source, count));
  return static_cast<int64_t>(count);
}

// The COM driver's pacing, as far as a peer with no clock of its own needs
// it: pieces arrive as queued; an empty queue is a read that runs out its
// time (the fake clock moves on) or, with no time-out at all, a far end gone.
bool SerialRead(SerialHandle port, const CommTimeouts& words, uint8_t* destination, uint32_t count,
                uint32_t* bytesRead) {
  *bytesRead = 0;
  if (port == kNoSerialDevice) {
    errno = EBADF;
    return false;
  }
  fuzz::FakePeer& peer = fuzz::SerialPeer();
  const bool stopOnAnyBytes = words.readInterval == kMaxDword;
  const bool unbounded = words.readTotalMultiplier == 0 && words.readTotalConstant == 0;
  const bool handOverWaiting = stopOnAnyBytes && unbounded;
  while (*bytesRead < count) {
    while (!peer.incoming.empty() && peer.incoming.front().empty()) peer.incoming.pop_front();
    if (peer.incoming.empty()) {
      if (handOverWaiting) break;
      if (unbounded) {
        errno = EIO;  // nothing will ever come: the far end is gone
        return false;
      }
      fuzz::AdvanceFakeClockMs(static_cast<int64_t>(words.readTotalMultiplier) * count +
                               words.readTotalConstant);
      break;
    }
    std::vector<uint8_t>& piece = peer.incoming.front();
    const size_t take = std::min<size_t>(count - *bytesRead, piece.size());
    std::memcpy(destination + *bytesRead, piece.data(), take);
    peer.delivered.insert(peer.delivered.end(), piece.begin(), piece.begin() + take);
    piece.erase(piece.begin(), piece.begin() + take);
    *bytesRead += static_cast<uint32_t>(take);
    if (stopOnAnyBytes) break;
  }
  return true;
}

}  // namespace qrx
