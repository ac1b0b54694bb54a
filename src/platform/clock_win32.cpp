#include <windows.h>

#include "platform/clock.h"

namespace qrx {

int64_t PerformanceCounter() {
  LARGE_INTEGER now{};
  QueryPerformanceCounter(&now);
  return now.QuadPart;
}

int64_t PerformanceFrequency() {
  LARGE_INTEGER frequency{};
  QueryPerformanceFrequency(&frequency);
  return frequency.QuadPart;
}

int64_t WallClockMicroseconds() {
  // 100-nanosecond ticks since 1601-01-01; 11644473600 s lie between that and 1970.
  constexpr int64_t kTicksPerMicrosecond = 10;
  constexpr int64_t kEpochDifferenceMicroseconds = 11644473600LL * 1000000;
  FILETIME now{};
  GetSystemTimeAsFileTime(&now);
  const int64_t ticks =
      (static_cast<int64_t>(now.dwHighDateTime) << 32) | static_cast<int64_t>(now.dwLowDateTime);
  return ticks / kTicksPerMicrosecond - kEpochDifferenceMicroseconds;
}

void SleepMilliseconds(uint32_t milliseconds) {
  Sleep(milliseconds);
}

}  // namespace qrx
