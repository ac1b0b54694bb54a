#include "socket_posix.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace qrx::sim {

int ListenTcp(const std::string& address, uint16_t port, uint16_t* boundPort, std::string* error) {
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_port = htons(port);
  if (inet_pton(AF_INET, address.c_str(), &addr.sin_addr) != 1) {
    *error = "not an IPv4 address: " + address;
    return -1;
  }
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) {
    *error = std::string("socket: ") + std::strerror(errno);
    return -1;
  }
  const int on = 1;
  setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
  if (bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0 || listen(fd, 4) != 0) {
    *error = std::string("bind/listen: ") + std::strerror(errno);
    close(fd);
    return -1;
  }
  socklen_t length = sizeof(addr);
  getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &length);
  *boundPort = ntohs(addr.sin_port);
  return fd;
}

int AcceptClient(int listenFd) {
  const int fd = accept4(listenFd, nullptr, nullptr, SOCK_CLOEXEC);
  if (fd < 0) return -1;
  const int on = 1;
  setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
  return fd;
}

void RequestQuickAck(int fd) {
  const int on = 1;
  setsockopt(fd, IPPROTO_TCP, TCP_QUICKACK, &on, sizeof(on));
}

Readiness WaitReadable(int fd, int timeoutMs) {
  pollfd entry{fd, POLLIN, 0};
  const int result = poll(&entry, 1, timeoutMs);
  if (result == 0) return Readiness::kTimeout;
  if (result < 0) return errno == EINTR ? Readiness::kTimeout : Readiness::kError;
  if (entry.revents & POLLIN) return Readiness::kReadable;
  if (entry.revents & POLLHUP) return Readiness::kHangup;
  return Readiness::kError;
}

long ReceiveSome(int fd, std::span<uint8_t> buffer) {
  ssize_t count;
  do {
    count = recv(fd, buffer.data(), buffer.size(), 0);
  } while (count < 0 && errno == EINTR);
  return static_cast<long>(count);
}

bool SendAll(int fd, std::span<const uint8_t> bytes) {
  size_t sent = 0;
  while (sent < bytes.size()) {
    const ssize_t count = send(fd, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    sent += static_cast<size_t>(count);
  }
  return true;
}

void CloseSocket(int fd) {
  if (fd >= 0) close(fd);
}

}  // namespace qrx::sim
