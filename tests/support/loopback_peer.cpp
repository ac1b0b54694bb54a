#include "support/loopback_peer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "support/timed_read_posix.h"

namespace qrx::test {

LoopbackPeer::LoopbackPeer(uint16_t port, Mode mode) {
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof(address);
  if (bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 ||
      (mode == Mode::kListening && listen(fd, 4) != 0) ||
      getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
    if (fd >= 0) close(fd);
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
  pollfd entry{listener_, POLLIN, 0};
  if (listener_ < 0 || poll(&entry, 1, timeoutMs) <= 0) return false;
  Close();
  connection_ = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
  return connection_ >= 0;
}

std::vector<uint8_t> LoopbackPeer::ReadExact(size_t n, int timeoutMs) {
  const std::vector<uint8_t> bytes =
      connection_ < 0 ? std::vector<uint8_t>{} : TimedRead(connection_, n, timeoutMs);
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
