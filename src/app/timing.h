#pragma once

#include <cstdint>
#include <vector>

#include "run/run_timers.h"

namespace qrx {

// Prints the table on standard error; the first three rows only over UART.
void PrintTimingReport(int32_t interface);

// The table from accumulated values alone: the total is timer 0's value and
// the frequency (ticks per second) turns ticks into seconds. PrintTimingReport
// stops the total and reads the frequency, then prints through this.
void PrintTimingTable(const RunTimers& timers, int32_t interface, double frequency);

// The rows the table shows, as values, for the run report.
struct TimingRowValue {
  const char* task;
  double percent;
  double seconds;
};
std::vector<TimingRowValue> TimingRows(const RunTimers& timers, int32_t interface,
                                       double frequency);

}  // namespace qrx
