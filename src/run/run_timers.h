#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace qrx {

// The accumulating timers of a run, in the order of the design; each feeds
// one row of the timing report.
enum class RunTimer : int {
  kTotal = 0,
  kSwitchBaudrate = 1,
  kComWrite = 2,
  kComRead = 3,
  kPatchLibInit = 4,
  kPatchLibGetNext = 5,
  kPatchLibProcessLast = 6,
  kInitialization = 7,
};
constexpr size_t kRunTimerCount = 8;

struct TimerSlot {
  int64_t start = 0;         // counter reading when started
  double accumulated = 0.0;  // counter ticks
};

struct RunTimers {
  std::array<TimerSlot, kRunTimerCount> timers{};
  int64_t now = 0;  // shared reading taken by every stop
};

extern RunTimers g_runTimers;

void StartTimer(RunTimer timer);
void StopTimer(RunTimer timer);

}  // namespace qrx
