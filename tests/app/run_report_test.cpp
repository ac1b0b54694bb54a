#include <gtest/gtest.h>

#include <string>

#include "app/options.h"
#include "app/orchestration.h"
#include "app/timing.h"
#include "platform/clock.h"
#include "platform/console.h"
#include "run/download_progress.h"
#include "run/run_options.h"

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

// A row adds up every interval of its step, not only the first or the last,
// counted at the frequency the clock states.
TEST(RunTimers, EveryStopAddsItsIntervalToTheRow) {
  g_runTimers = RunTimers{};
  for (int i = 0; i < 2; ++i) {
    StartTimer(RunTimer::kComRead);
    SleepMilliseconds(30);
    StopTimer(RunTimer::kComRead);
  }
  const double seconds = g_runTimers.timers[3].accumulated / PerformanceFrequency();
  EXPECT_GE(seconds, 0.06);
  EXPECT_LT(seconds, 1.0);
}

// 3000 bytes (24 kbit) after a little over 0.3 s: the rate is shown in kbit/s,
// bytes times 8, and the time left for the other 597000 bytes at that rate
// (about ten minutes) in minutes and seconds.
TEST(ProgressLine, ShowsTheRateInKilobitsPerSecondAndTheTimeLeft) {
  g_runOptions = RunOptions{};
  g_runOptions.progress = ProgressMode::kOn;
  ConsoleCapture console;
  const int64_t before = PerformanceCounter();
  ProgressBegin(600000);
  SleepMilliseconds(300);
  ProgressUpdate(3000);
  const auto seconds = static_cast<double>(PerformanceCounter() - before) / PerformanceFrequency();
  ProgressEnd();
  g_runOptions = RunOptions{};
  double kbits = 0;
  int minutes = 0, secondsLeft = 0;
  ASSERT_EQ(std::sscanf(console.Err().c_str(), "\r  0%% 3000/600000 bytes  %lf kbit/s  %d:%d left",
                        &kbits, &minutes, &secondsLeft),
            3)
      << console.Err();
  EXPECT_LE(kbits, 24 / 0.3 + 0.1);
  EXPECT_GE(kbits, 24 / seconds - 0.1);
  EXPECT_LT(secondsLeft, 60);
  EXPECT_NEAR(minutes * 60 + secondsLeft, 597000 * 8 / 1000 / kbits, 3);
}

}  // namespace
}  // namespace qrx
