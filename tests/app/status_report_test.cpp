#include <gtest/gtest.h>

#include <string>

#include "app/orchestration.h"
#include "platform/console.h"

namespace qrx {
namespace {

struct StatusCase {
  FwLibStatus status;
  std::string transcript;
};

TEST(ReportLibraryStatus, PrintsTheMessageOfEachStatusOrNothing) {
  const StatusCase cases[] = {
      {0, ""},
      {1, "ERROR: QRXFUL was supplied with an insufficent buffer! Status=1\n"},
      {2, "ERROR: QRXFUL was supplied with an invalid parameter! Status=2\n"},
      {3, "ERROR: QRXFUL failed! Status=3\n"},
      {4, ""},
      {5, ""},
      {6, ""},
      {7, ""},
      {8, ""},
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
      {15, ""},
      {16, ""},
      {0xFFFFFFFF, ""},
  };
  for (const StatusCase& c : cases) {
    ConsoleCapture capture;
    ReportLibraryStatus(c.status);
    EXPECT_EQ(capture.Err(), c.transcript) << "status " << c.status;
    EXPECT_EQ(capture.Out(), "");
  }
}

}  // namespace
}  // namespace qrx
