#include "app/timing.h"

#include <array>

#include "platform/clock.h"
#include "platform/console.h"
#include "run/run_options.h"

namespace qrx {

namespace {

struct TimingRow {
  const char* task;
  const char* format;  // share in percent, then seconds
  RunTimer timer;
  bool uartOnly;
};

// "Other" and "Total" follow these rows; they are computed, not timed.
constexpr std::array<TimingRow, 7> kTimedRows = {{
    {"Switch Baudrate", "Switch Baudrate:          %10f %10f\n", RunTimer::kSwitchBaudrate, true},
    {"Windows COM Write", "Windows COM Write:        %10f %10f\n", RunTimer::kComWrite, true},
    {"Windows COM Read", "Windows COM Read:         %10f %10f\n", RunTimer::kComRead, true},
    {"Patch Lib (Init)", "Patch Lib (Init):         %10f %10f\n", RunTimer::kPatchLibInit, false},
    {"Patch Lib (Get Next)", "Patch Lib (Get Next):     %10f %10f\n", RunTimer::kPatchLibGetNext,
     false},
    {"Patch Lib (Process Last)", "Patch Lib (Process Last): %10f %10f\n",
     RunTimer::kPatchLibProcessLast, false},
    {"Initialization", "Initialization:           %10f %10f\n", RunTimer::kInitialization, false},
}};

double Accumulated(const RunTimers& timers, RunTimer timer) {
  return timers.timers[static_cast<size_t>(timer)].accumulated;
}

// Every timed row is taken out of "Other", also the ones not shown over TCP/IP.
double OtherTicks(const RunTimers& timers) {
  double other = Accumulated(timers, RunTimer::kTotal);
  for (const TimingRow& row : kTimedRows) other -= Accumulated(timers, row.timer);
  return other;
}

}  // namespace

std::vector<TimingRowValue> TimingRows(const RunTimers& timers, int32_t interface,
                                       double frequency) {
  const double total = Accumulated(timers, RunTimer::kTotal);
  std::vector<TimingRowValue> rows;
  auto add = [&](const char* task, double value) {
    rows.push_back({task, value / total * 100.0, value / frequency});
  };
  for (const TimingRow& row : kTimedRows) {
    if (row.uartOnly && interface != kInterfaceUart) continue;
    add(row.task, Accumulated(timers, row.timer));
  }
  add("Other", OtherTicks(timers));
  add("Total", total);
  return rows;
}

void PrintTimingTable(const RunTimers& timers, int32_t interface, double frequency) {
  const double total = Accumulated(timers, RunTimer::kTotal);
  const double other = OtherTicks(timers);

  // A zero total divides by zero; whatever the platform prints for it is shown.
  auto print = [&](const char* format, double value) {
    ConsolePrintf(format, value / total * 100.0, value / frequency);
  };
  ConsolePrintf("Task                      %%Time        Time(Sec)\n");
  for (const TimingRow& row : kTimedRows) {
    if (row.uartOnly && interface != kInterfaceUart) continue;
    print(row.format, Accumulated(timers, row.timer));
  }
  print("Other:                    %10f %10f\n", other);
  print("Total:                    %10f %10f\n", total);
}

void PrintTimingReport(int32_t interface) {
  StopTimer(RunTimer::kTotal);
  const auto frequency = static_cast<double>(PerformanceFrequency());
  PrintTimingTable(g_runTimers, interface, frequency);
}

}  // namespace qrx
