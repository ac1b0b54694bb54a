#include "support/loopback_peer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>

namespace qrx::test {

namespace {

using Clock = std::chrono::steady_clock;

// Waits for the descriptor to become readable until the deadline.
bool WaitReadable(int fd, Clock::time_point deadline) {
  for (;;) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    if (left <= 0) return false;
    pollfd entry{fd, POLLIN, 0};
    const int ready = poll(&entry, 1, static_cast<int>(left));
    if (ready > 0) return true;
    if (ready < 0 && errno != EINTR) return false;
  }
}

}  // namespace

LoopbackPeer::LoopbackPeer(uint16_t port, Mode mode) {
  const int fd = socket(AF_INET, SOCK_STREAM, 0);
  if (fd < 0) return;
  const int on = 1;
  setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof(address);
  if (bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 ||
      (mode == Mode::kListening && listen(fd, 4) != 0) ||
      getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
    close(fd);
    return;
  }
  listener_ = fd;
  port_ = ntohs(address.sin_port);
}

LoopbackPeer::~LoopbackPeer() {
  Join();
  Close();
  if (listener_ >= 0) close(listener_);
}

bool LoopbackPeer::Accept(int timeoutMs) {
  if (listener_ < 0 ||
      !WaitReadable(listener_, Clock::now() + std::chrono::milliseconds(timeoutMs)))
    return false;
  Close();
  connection_ = accept(listener_, nullptr, nullptr);
  return connection_ >= 0;
}

std::vector<uint8_t> LoopbackPeer::ReadExact(size_t n, int timeoutMs) {
  std::vector<uint8_t> bytes(n);
  size_t filled = 0;
  const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
  while (filled < n && connection_ >= 0 && WaitReadable(connection_, deadline)) {
    const ssize_t got = recv(connection_, bytes.data() + filled, n - filled, 0);
    if (got <= 0) break;
    filled += static_cast<size_t>(got);
  }
  bytes.resize(filled);
  received_.insert(received_.end(), bytes.begin(), bytes.end());
  return bytes;
}

bool LoopbackPeer::Send(std::span<const uint8_t> bytes) {
  return connection_ >= 0 && send(connection_, bytes.data(), bytes.size(), MSG_NOSIGNAL) ==
                                 static_cast<ssize_t>(bytes.size());
}

void LoopbackPeer::Close() {
  if (connection_ >= 0) close(connection_);
  connection_ = -1;
}

void LoopbackPeer::Run(std::function<void(LoopbackPeer&)> script) {
  Join();
  script_ = std::thread([this, script = std::move(script)] {
    script(*this);
    Close();
  });
}

void LoopbackPeer::Join() {
  if (script_.joinable()) script_.join();
}

}  // namespace qrx::test
