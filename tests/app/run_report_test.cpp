#include <gtest/gtest.h>

#include <string>

#include "app/options.h"
#include "app/orchestration.h"
#include "app/timing.h"
#include "platform/console.h"

namespace qrx {
namespace {

// Statuses 0, 4 to 8, 15 and beyond print nothing.
TEST(ReportLibraryStatus, PrintsTheMessageOfEachStatusOrNothing) {
  ConsoleCapture capture;
  for (FwLibStatus status = 0; status <= 16; ++status) ReportLibraryStatus(status);
  ReportLibraryStatus(0xFFFFFFFF);
  EXPECT_EQ(
      capture.Err(),
      "ERROR: QRXFUL was supplied with an insufficent buffer! Status=1\n"
      "ERROR: QRXFUL was supplied with an invalid parameter! Status=2\n"
      "ERROR: QRXFUL failed! Status=3\n"
      "ERROR: QRXFUL encountered a controller failure! Status=9\n"
      "ERROR: QRXFUL failed to validate firmware with controller! Status=10\n"
      "ERROR: QRXFUL was unable to find viable firmware! Status=11\n"
      "\nPlease copy the Firmware file in custom location C:\\Program Files\\Norix\\Bluetooth \n"
      "ERROR: QRXFUL received an invalid event from the controller. Either an invalid firmware "
      "file was suppplied or communication was lost with the controller! Status=12\n"
      "ERROR: QRXFUL failed to allocate memory! Status=13\n"
      "ERROR: QRXFUL encountered a IO failure and was unable to communicate with the "
      "controller! Status=14\n");
  EXPECT_EQ(capture.Out(), "");
}

TEST(TimingTable, ShowsEveryStepAsShareAndSecondsLeavingTheLinkRowsOutOverTcp) {
  // 2.5 s in nanosecond ticks, in timer order, every step's share easy to check by hand.
  const double ticks[kRunTimerCount] = {2.5e9, 1.25e7, 2.5e8, 5e8, 1e6, 3.75e8, 2.5e7, 6.25e7};
  RunTimers timers;
  for (size_t i = 0; i < kRunTimerCount; ++i) timers.timers[i].accumulated = ticks[i];
  const std::string header = "Task                      %Time        Time(Sec)\n";
  const std::string uartRows =
      "Switch Baudrate:            0.500000   0.012500\n"
      "Windows COM Write:         10.000000   0.250000\n"
      "Windows COM Read:          20.000000   0.500000\n";
  // "Other" is what the seven timed steps leave, over TCP/IP as well.
  const std::string commonRows =
      "Patch Lib (Init):           0.040000   0.001000\n"
      "Patch Lib (Get Next):      15.000000   0.375000\n"
      "Patch Lib (Process Last):   1.000000   0.025000\n"
      "Initialization:             2.500000   0.062500\n"
      "Other:                     50.960000   1.274000\n"
      "Total:                    100.000000   2.500000\n";
  ConsoleCapture console;
  PrintTimingTable(timers, kInterfaceUart, 1e9);
  PrintTimingTable(timers, kInterfaceTcp, 1e9);
  EXPECT_EQ(console.Err(), header + uartRows + commonRows + header + commonRows);
}

}  // namespace
}  // namespace qrx
