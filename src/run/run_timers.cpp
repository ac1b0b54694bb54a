#include "run/run_timers.h"

#include "platform/clock.h"

namespace qrx {

RunTimers g_runTimers;

namespace {

TimerSlot& Slot(RunTimer timer) {
  return g_runTimers.timers[static_cast<size_t>(timer)];
}

}  // namespace

void StartTimer(RunTimer timer) {
  TimerSlot& slot = Slot(timer);
  slot.start = 0;
  slot.start = PerformanceCounter();
}

void StopTimer(RunTimer timer) {
  g_runTimers.now = PerformanceCounter();
  TimerSlot& slot = Slot(timer);
  slot.accumulated += static_cast<double>(g_runTimers.now - slot.start);
}

}  // namespace qrx
