#include "floor_client_posix.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <span>

#include "platform/byte_order.h"

namespace qrx::bench {

namespace {

constexpr size_t kFrameHeader = 12;
constexpr size_t kPrefix = 4;
constexpr std::array<uint8_t, 24> kPoll = {0x00, 0x00, 0x00, 0x00, 0x10, 0x00, 0x00, 0x00,
                                           0x00, 0x00, 0x00, 0x00, 0x08, 0x00, 0x00, 0x00,
                                           0x00, 0x00, 0x00, 0x00, 0x10, 0x27, 0x00, 0x00};
constexpr std::array<uint8_t, 4> kReadVersion = {0x05, 0xFC, 0x01, 0xFF};
constexpr size_t kCommandCompleteSize = 7;

int64_t NowNs() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<int64_t>(now.tv_sec) * 1000000000 + now.tv_nsec;
}

std::vector<uint8_t> Frame(std::span<const uint8_t> command) {
  std::vector<uint8_t> frame(kFrameHeader + 1 + command.size(), 0);
  WriteLe32(frame, 0, 1);
  WriteLe32(frame, 4, static_cast<uint32_t>(command.size() + 5));
  frame[kFrameHeader] = 0x01;
  std::copy(command.begin(), command.end(), frame.begin() + kFrameHeader + 1);
  return frame;
}

class Link {
 public:
  ~Link() {
    if (fd_ >= 0) close(fd_);
  }
  bool Connect(uint16_t port, bool noDelay) {
    fd_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int on = 1;
    if (noDelay) setsockopt(fd_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(port);
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return fd_ >= 0 && connect(fd_, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) == 0;
  }
  bool Send(std::span<const uint8_t> bytes) {
    return send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL) ==
           static_cast<ssize_t>(bytes.size());
  }
  // Polls and reads one server message whole; the bytes after its prefix.
  std::span<const uint8_t> Poll() {
    if (!Send(kPoll)) return {};
    size_t have = 0;
    while (have < kPrefix || have < kPrefix + ReadLe32(std::span(buffer_), 0)) {
      const ssize_t n = recv(fd_, buffer_.data() + have, buffer_.size() - have, 0);
      if (n <= 0) return {};
      have += static_cast<size_t>(n);
    }
    return std::span(buffer_).subspan(kPrefix, have - kPrefix);
  }

 private:
  int fd_ = -1;
  std::array<uint8_t, 512> buffer_{};
};

}  // namespace

FloorResult RunFloorClient(uint16_t port, const std::vector<std::vector<uint8_t>>& commands,
                           bool noDelay) {
  FloorResult result;
  std::vector<std::vector<uint8_t>> frames;
  for (const auto& command : commands) frames.push_back(Frame(command));
  Link link;
  if (!link.Connect(port, noDelay) || link.Poll().empty()) return result;
  if (!link.Send(Frame(kReadVersion)) || link.Poll().empty()) return result;

  const int64_t start = NowNs();
  for (const auto& frame : frames) {
    if (!link.Send(frame)) return result;
    const auto answer = link.Poll();
    if (answer.size() != kCommandCompleteSize || answer.back() != 0) return result;
  }
  result.fragmentNs = NowNs() - start;
  result.ok = !link.Poll().empty();  // the completion event
  return result;
}

}  // namespace qrx::bench
