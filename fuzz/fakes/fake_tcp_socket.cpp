// A server socket whose far end is a FakePeer: every look-up and connect
// succeeds, sends go to the peer, receives take what it queued, and an empty
// queue is a server that closed the connection.
#include <algorithm>
#include <cstring>

#include "fake_world.h"
#include "transport/tcp_socket.h"

namespace qrx {

namespace {
constexpr SocketHandle kFakeSocket = 9;
int g_anyAddress = 0;
}  // namespace

int32_t SocketLibraryStartup() {
  return 0;
}

void SocketLibraryCleanup() {}

int32_t LookUpTcpServer(const char* /*node*/, const char* /*service*/, ServerAddressList& found) {
  found.results = &g_anyAddress;
  return 0;
}

void FreeServerAddressList(ServerAddressList& found) {
  found.results = nullptr;
}

SocketHandle OpenSocketForFirst(const ServerAddressList& found) {
  return found.results == nullptr ? kInvalidSocket : kFakeSocket;
}

int32_t ConnectToFirst(SocketHandle /*socket*/, const ServerAddressList& /*found*/) {
  return 0;
}

int32_t CloseSocket(SocketHandle /*socket*/) {
  return 0;
}

void CloseSocketAtOnce(intptr_t /*socket*/) {}

int32_t SetNoDelay(SocketHandle /*socket*/) {
  return 0;
}

int32_t SetReceiveTimeout(SocketHandle /*socket*/,
                          std::span<const uint8_t, kReceiveTimeoutOptionSize> /*optionValue*/) {
  return 0;
}

int64_t SendOnSocket(SocketHandle /*socket*/, std::span<const uint8_t> bytes) {
  fuzz::FakePeer& peer = fuzz::ServerPeer();
  if (peer.onWrite) peer.onWrite(bytes);
  return static_cast<int64_t>(bytes.size());
}

int64_t ReceiveFromSocket(SocketHandle /*socket*/, std::span<uint8_t> into) {
  fuzz::FakePeer& peer = fuzz::ServerPeer();
  while (!peer.incoming.empty() && peer.incoming.front().empty()) peer.incoming.pop_front();
  if (peer.incoming.empty()) return 0;
  std::vector<uint8_t>& piece = peer.incoming.front();
  const size_t take = std::min(into.size(), piece.size());
  std::memcpy(into.data(), piece.data(), take);
  peer.delivered.insert(peer.delivered.end(), piece.begin(), piece.begin() + take);
  piece.erase(piece.begin(), piece.begin() + take);
  return static_cast<int64_t>(take);
}

int32_t LastSocketError() {
  return 0;  // no call here ever fails
}

}  // namespace qrx
