#include <gtest/gtest.h>

#include <map>
#include <string>

#include "app/orchestration.h"
#include "platform/console.h"

namespace qrx {
namespace {

// Statuses 0, 4 to 8, 15 and beyond print nothing.
TEST(ReportLibraryStatus, PrintsTheMessageOfEachStatusOrNothing) {
  const std::map<FwLibStatus, std::string> messages = {
      {1, "ERROR: QRXFUL was supplied with an insufficent buffer! Status=1\n"},
      {2, "ERROR: QRXFUL was supplied with an invalid parameter! Status=2\n"},
      {3, "ERROR: QRXFUL failed! Status=3\n"},
      {9, "ERROR: QRXFUL encountered a controller failure! Status=9\n"},
      {10, "ERROR: QRXFUL failed to validate firmware with controller! Status=10\n"},
      {11,
       "ERROR: QRXFUL was unable to find viable firmware! Status=11\n"
       "\nPlease copy the Firmware file in custom location C:\\Program Files\\Norix\\Bluetooth \n"},
      {12,
       "ERROR: QRXFUL received an invalid event from the controller. Either an invalid firmware "
       "file was suppplied or communication was lost with the controller! Status=12\n"},
      {13, "ERROR: QRXFUL failed to allocate memory! Status=13\n"},
      {14,
       "ERROR: QRXFUL encountered a IO failure and was unable to communicate with the "
       "controller! Status=14\n"},
  };
  for (const FwLibStatus status :
       {0u, 1u, 2u, 3u, 4u, 5u, 6u, 7u, 8u, 9u, 10u, 11u, 12u, 13u, 14u, 15u, 16u, 0xFFFFFFFFu}) {
    ConsoleCapture capture;
    ReportLibraryStatus(status);
    const auto message = messages.find(status);
    EXPECT_EQ(capture.Err(), message == messages.end() ? "" : message->second) << status;
    EXPECT_EQ(capture.Out(), "");
  }
}

}  // namespace
}  // namespace qrx
