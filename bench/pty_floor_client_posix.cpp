#include "pty_floor_client_posix.h"

#include <fcntl.h>
#include <time.h>
#include <unistd.h>

#include <array>
#include <span>

#include "platform/byte_order.h"
#include "pty_posix.h"

namespace qrx::bench {

namespace {

constexpr uint32_t kPowerOnRate = 115200;
constexpr int64_t kBitsPerByte = 10;  // 8N1
constexpr uint8_t kH4Command = 0x01;
constexpr std::array<uint8_t, 5> kReadVersion = {kH4Command, 0x05, 0xFC, 0x01, 0xFF};
constexpr size_t kChangeRateAt = 6;
constexpr std::array<uint8_t, 10> kChangeRate = {kH4Command, 0x10, 0xFC, 6, 0, 0, 0, 0, 0, 0};
// The controller must hear the whole change before the terminal follows.
constexpr int64_t kChangeRateSettleNs = 20'000'000;
constexpr size_t kEventHeader = 3;  // type, code, parameter length
constexpr size_t kCommandCompleteSize = 7;
constexpr size_t kCompletionSize = 5;  // the vendor event that ends a download

int64_t NowNs() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<int64_t>(now.tv_sec) * 1000000000 + now.tv_nsec;
}

class Line {
 public:
  ~Line() {
    if (fd_ >= 0) close(fd_);
  }
  bool Open(const std::string& path) {
    fd_ = open(path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    return fd_ >= 0 && SetRate(kPowerOnRate);
  }
  bool SetRate(uint32_t rate) { return sim::SetRawTerminal(fd_, rate); }
  bool Write(std::span<const uint8_t> bytes) {
    return write(fd_, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
  }
  // Blocks until count more bytes have come; they are the buffer's first.
  bool Read(size_t count) {
    for (size_t have = 0; have < count;) {
      const ssize_t n = read(fd_, buffer_.data() + have, count - have);
      if (n <= 0) return false;
      have += static_cast<size_t>(n);
    }
    return true;
  }
  uint8_t At(size_t index) const { return buffer_[index]; }

 private:
  int fd_ = -1;
  std::array<uint8_t, 300> buffer_{};
};

}  // namespace

PtyFloorResult RunPtyFloorClient(const std::string& pty, uint32_t rate,
                                 const std::vector<std::vector<uint8_t>>& commands) {
  PtyFloorResult result;
  Line line;
  if (!line.Open(pty) || !line.Write(kReadVersion) || !line.Read(kEventHeader) ||
      !line.Read(line.At(kEventHeader - 1))) {
    return result;
  }
  if (rate != kPowerOnRate) {
    std::array<uint8_t, kChangeRate.size()> change = kChangeRate;
    WriteLe32(change, kChangeRateAt, rate);
    if (!line.Write(change)) return result;
    const timespec settle{0, kChangeRateSettleNs};
    nanosleep(&settle, nullptr);
    if (!line.SetRate(rate)) return result;
  }
  std::vector<std::vector<uint8_t>> sends;
  int64_t bytes = kCompletionSize;
  for (const auto& command : commands) {
    sends.push_back({kH4Command});
    sends.back().insert(sends.back().end(), command.begin(), command.end());
    bytes += static_cast<int64_t>(sends.back().size() + kCommandCompleteSize);
  }
  const int64_t start = NowNs();
  for (const auto& send : sends) {
    if (!line.Write(send) || !line.Read(kCommandCompleteSize) ||
        line.At(kCommandCompleteSize - 1) != 0) {
      return result;
    }
  }
  if (!line.Read(kCompletionSize)) return result;
  result.fragmentNs = NowNs() - start;
  result.fragmentWireNs = bytes * kBitsPerByte * 1'000'000'000 / rate;
  result.ok = true;
  return result;
}

}  // namespace qrx::bench
