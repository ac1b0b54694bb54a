#pragma once

// The operating system as the fuzz targets see it: a serial line and a server
// socket whose far end is scripted (or played by the simulator's controller),
// files held in memory and a clock that only moves when the loader waits.
// Linked in place of the *_posix.cpp backends; the product is unchanged.

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <span>
#include <string>
#include <vector>

namespace qrx::fuzz {

struct FakePeer {
  // What the far end sends, piece by piece; a read takes from the front piece.
  std::deque<std::vector<uint8_t>> incoming;
  // Sees every byte the loader writes (recording runs answer from here).
  std::function<void(std::span<const uint8_t>)> onWrite;
  // Every piece handed to the loader, in order, as one stream.
  std::vector<uint8_t> delivered;
};

FakePeer& SerialPeer();
FakePeer& ServerPeer();

// The serial line's state as the loader left it.
struct FakeLineState {
  bool open = false;
  uint32_t appliedRate = 0;  // the rate of the last settings applied
};
const FakeLineState& SerialLine();

// Files: any host path ending in suffix opens as bytes.
void AddFakeFile(std::string suffix, std::vector<uint8_t> bytes);

// Back to a world with nothing in it, the clock included.
void ResetFakeWorld();

// The backends' own resets, and the clock's only mover besides a sleep.
void ResetFakeFiles();
void ResetFakeClock();
void ResetFakeSerialLine();
void RewindFakeTraceFile();
void AdvanceFakeClockMs(int64_t milliseconds);

// Cuts a stream into pieces: a piece size of 0 gives one piece.
void QueueStream(FakePeer& peer, std::span<const uint8_t> stream, size_t pieceSize);

}  // namespace qrx::fuzz
