#include "vps_client_posix.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include "platform/byte_order.h"
#include "support/timed_read_posix.h"

namespace qrx::test {

void VpsClient::Close() {
  if (fd_ >= 0) close(fd_);
  fd_ = -1;
}

bool VpsClient::Connect(uint16_t port, bool noDelay) {
  fd_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_port = htons(port);
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  const int on = 1;
  if (noDelay) setsockopt(fd_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
  if (connect(fd_, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) == 0) return true;
  Close();
  return false;
}

std::vector<uint8_t> VpsClient::DataFrame(std::span<const uint8_t> command) {
  std::vector<uint8_t> frame(13 + command.size(), 0);  // type 1, then the byte count from offset 12
  WriteLe32(frame, 0, 1);
  WriteLe32(frame, 4, static_cast<uint32_t>(5 + command.size()));
  frame[12] = 0x01;
  std::copy(command.begin(), command.end(), frame.begin() + 13);
  return frame;
}

std::vector<uint8_t> VpsClient::PollFrame() {
  return {0x00, 0x00, 0x00, 0x00, 0x10, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
          0x08, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x10, 0x27, 0x00, 0x00};
}

bool VpsClient::Send(std::span<const uint8_t> bytes) {
  return send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
}

std::optional<std::vector<uint8_t>> VpsClient::Poll(int timeoutMs) {
  if (!Send(PollFrame())) return std::nullopt;
  const std::vector<uint8_t> prefix = TimedRead(fd_, 4, timeoutMs);
  if (prefix.size() != 4) return std::nullopt;
  std::vector<uint8_t> body = TimedRead(fd_, ReadLe32(prefix, 0), timeoutMs);
  if (body.size() != ReadLe32(prefix, 0)) return std::nullopt;
  return body;
}

}  // namespace qrx::test
