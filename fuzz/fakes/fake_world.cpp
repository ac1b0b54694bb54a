#include "fake_world.h"

#include <algorithm>
#include <utility>

namespace qrx::fuzz {

namespace {
FakePeer g_serial;
FakePeer g_server;
}  // namespace

FakePeer& SerialPeer() {
  return g_serial;
}

FakePeer& ServerPeer() {
  return g_server;
}

void QueueStream(FakePeer& peer, std::span<const uint8_t> stream, size_t pieceSize) {
  if (pieceSize == 0) pieceSize = stream.size();
  for (size_t at = 0; at < stream.size(); at += pieceSize) {
    const size_t take = std::min(pieceSize, stream.size() - at);
    peer.incoming.emplace_back(stream.begin() + at, stream.begin() + at + take);
  }
}

void ResetFakeWorld() {
  g_serial = FakePeer{};
  g_server = FakePeer{};
  ResetFakeFiles();
  ResetFakeClock();
  ResetFakeSerialLine();
  RewindFakeTraceFile();
}

}  // namespace qrx::fuzz
