#include "app/timing.h"

#include <gtest/gtest.h>

#include <string>

#include "app/options.h"
#include "platform/console.h"

namespace qrx {
namespace {

double& Ticks(RunTimers& timers, RunTimer timer) {
  return timers.timers[static_cast<size_t>(timer)].accumulated;
}

// 2.5 s in nanosecond ticks, with every step's share easy to check by hand.
RunTimers KnownRun() {
  RunTimers timers;
  Ticks(timers, RunTimer::kTotal) = 2.5e9;
  Ticks(timers, RunTimer::kSwitchBaudrate) = 1.25e7;
  Ticks(timers, RunTimer::kComWrite) = 2.5e8;
  Ticks(timers, RunTimer::kComRead) = 5e8;
  Ticks(timers, RunTimer::kPatchLibInit) = 1e6;
  Ticks(timers, RunTimer::kPatchLibGetNext) = 3.75e8;
  Ticks(timers, RunTimer::kPatchLibProcessLast) = 2.5e7;
  Ticks(timers, RunTimer::kInitialization) = 6.25e7;
  return timers;
}

const std::string kHeader = "Task                      %Time        Time(Sec)\n";
const std::string kUartRows =
    "Switch Baudrate:            0.500000   0.012500\n"
    "Windows COM Write:         10.000000   0.250000\n"
    "Windows COM Read:          20.000000   0.500000\n";
// "Other" is what the seven timed steps leave, over TCP/IP as well.
const std::string kCommonRows =
    "Patch Lib (Init):           0.040000   0.001000\n"
    "Patch Lib (Get Next):      15.000000   0.375000\n"
    "Patch Lib (Process Last):   1.000000   0.025000\n"
    "Initialization:             2.500000   0.062500\n"
    "Other:                     50.960000   1.274000\n"
    "Total:                    100.000000   2.500000\n";

TEST(TimingTable, ShowsEveryStepAsShareAndSecondsLeavingTheLinkRowsOutOverTcp) {
  ConsoleCapture console;
  PrintTimingTable(KnownRun(), kInterfaceUart, 1e9);
  EXPECT_EQ(console.Err(), kHeader + kUartRows + kCommonRows);
  console.Clear();
  PrintTimingTable(KnownRun(), kInterfaceTcp, 1e9);
  EXPECT_EQ(console.Err(), kHeader + kCommonRows);
}

}  // namespace
}  // namespace qrx
