#include "support/timed_read_posix.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>

namespace qrx::test {

std::vector<uint8_t> TimedRead(int fd, size_t count, int timeoutMs) {
  using Clock = std::chrono::steady_clock;
  const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
  std::vector<uint8_t> bytes(count);
  size_t got = 0;
  while (got < count) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    pollfd entry{fd, POLLIN, 0};
    if (poll(&entry, 1, static_cast<int>(std::max<int64_t>(left.count(), 0))) <= 0) break;
    const ssize_t n = read(fd, bytes.data() + got, count - got);
    if (n <= 0) break;
    got += static_cast<size_t>(n);
  }
  bytes.resize(got);
  return bytes;
}

}  // namespace qrx::test
