// Time moves by a microsecond per look and by the whole of every sleep, at
// once: waits end, and nothing really waits.
#include "fake_world.h"
#include "platform/clock.h"

namespace qrx {

namespace {
constexpr int64_t kTicksPerSecond = 1000000000;
constexpr int64_t kTicksPerLook = 1000;
int64_t g_now = 0;
}  // namespace

namespace fuzz {
void ResetFakeClock() {
  g_now = 0;
}
void AdvanceFakeClockMs(int64_t milliseconds) {
  g_now += milliseconds * (kTicksPerSecond / 1000);
}
}  // namespace fuzz

int64_t PerformanceCounter() {
  g_now += kTicksPerLook;
  return g_now;
}

int64_t PerformanceFrequency() {
  return kTicksPerSecond;
}

int64_t WallClockMicroseconds() {
  return g_now / (kTicksPerSecond / 1000000);
}

void SleepMilliseconds(uint32_t milliseconds) {
  fuzz::AdvanceFakeClockMs(milliseconds);
}

}  // namespace qrx
