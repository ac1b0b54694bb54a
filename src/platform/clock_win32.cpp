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

void SleepMilliseconds(uint32_t milliseconds) {
  Sleep(milliseconds);
}

}  // namespace qrx
