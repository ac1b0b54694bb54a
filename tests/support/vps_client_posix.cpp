#include "vps_client_posix.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

#include "platform/byte_order.h"

namespace qrx::test {

namespace {
constexpr uint32_t kDataType = 1;
constexpr size_t kPrefix = 4;
}  // namespace

VpsClient::~VpsClient() {
  Close();
}

void VpsClient::Close() {
  if (fd_ >= 0) close(fd_);
  fd_ = -1;
}

bool VpsClient::Connect(uint16_t port, bool noDelay) {
  fd_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd_ < 0) return false;
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_port = htons(port);
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (connect(fd_, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0) {
    Close();
    return false;
  }
  const int on = 1;
  if (noDelay) setsockopt(fd_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
  return true;
}

std::vector<uint8_t> VpsClient::DataFrame(std::span<const uint8_t> command) {
  std::vector<uint8_t> frame(13 + command.size(), 0);
  WriteLe32(frame, 0, kDataType);
  WriteLe32(frame, 4, static_cast<uint32_t>(5 + command.size()));
  frame[12] = 0x01;
  std::copy(command.begin(), command.end(), frame.begin() + 13);
  return frame;
}

std::vector<uint8_t> VpsClient::PollFrame() {
  return {0x00, 0x00, 0x00, 0x00, 0x10, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
          0x08, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x10, 0x27, 0x00, 0x00};
}

bool VpsClient::SendRaw(std::span<const uint8_t> bytes) {
  size_t sent = 0;
  while (sent < bytes.size()) {
    const ssize_t count = send(fd_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    if (count <= 0) return false;
    sent += static_cast<size_t>(count);
  }
  return true;
}

bool VpsClient::ReadExactly(uint8_t* into, size_t count, int timeoutMs) {
  size_t got = 0;
  while (got < count) {
    pollfd entry{fd_, POLLIN, 0};
    if (poll(&entry, 1, timeoutMs) <= 0) return false;
    const ssize_t n = recv(fd_, into + got, count - got, 0);
    if (n <= 0) return false;
    got += static_cast<size_t>(n);
  }
  return true;
}

std::optional<std::vector<uint8_t>> VpsClient::ReadMessage(int timeoutMs) {
  uint8_t prefix[kPrefix];
  if (!ReadExactly(prefix, kPrefix, timeoutMs)) return std::nullopt;
  std::vector<uint8_t> body(ReadLe32(prefix, 0));
  if (!body.empty() && !ReadExactly(body.data(), body.size(), timeoutMs)) return std::nullopt;
  return body;
}

std::optional<std::vector<uint8_t>> VpsClient::Poll(int timeoutMs) {
  if (!SendPoll()) return std::nullopt;
  return ReadMessage(timeoutMs);
}

}  // namespace qrx::test
