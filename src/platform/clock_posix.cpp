#include <time.h>

#include <cerrno>

#include "platform/clock.h"

namespace qrx {

namespace {
constexpr int64_t kNanosecondsPerSecond = 1000000000;
}

int64_t PerformanceCounter() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<int64_t>(now.tv_sec) * kNanosecondsPerSecond + now.tv_nsec;
}

int64_t PerformanceFrequency() {
  return kNanosecondsPerSecond;
}

int64_t WallClockMicroseconds() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return static_cast<int64_t>(now.tv_sec) * 1000000 + now.tv_nsec / 1000;
}

void SleepMilliseconds(uint32_t milliseconds) {
  timespec rest{static_cast<time_t>(milliseconds / 1000),
                static_cast<long>(milliseconds % 1000) * 1000000L};
  while (nanosleep(&rest, &rest) != 0 && errno == EINTR) {
  }
}

}  // namespace qrx
