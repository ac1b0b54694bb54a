#include <array>

#include "app/orchestration.h"
#include "platform/console.h"

namespace qrx {

namespace {

struct StatusMessage {
  FwLibStatus status;
  const char* text;  // one "%d" for the status
};

// Worded exactly as operators and scripts have always seen them, slips
// ("insufficent", "suppplied", "a IO") included on purpose.
constexpr std::array<StatusMessage, 8> kStatusMessages = {{
    {kFwLibInsufficientBuffer,
     "ERROR: QRXFUL was supplied with an insufficent buffer! Status=%d\n"},
    {kFwLibInvalidParameter, "ERROR: QRXFUL was supplied with an invalid parameter! Status=%d\n"},
    {kFwLibFailure, "ERROR: QRXFUL failed! Status=%d\n"},
    {kFwLibControllerFailure, "ERROR: QRXFUL encountered a controller failure! Status=%d\n"},
    {kFwLibNotValidated, "ERROR: QRXFUL failed to validate firmware with controller! Status=%d\n"},
    {kFwLibInvalidEvent,
     "ERROR: QRXFUL received an invalid event from the controller. Either an invalid firmware "
     "file was suppplied or communication was lost with the controller! Status=%d\n"},
    {kFwLibOutOfMemory, "ERROR: QRXFUL failed to allocate memory! Status=%d\n"},
    {kFwLibIoFailure,
     "ERROR: QRXFUL encountered a IO failure and was unable to communicate with the controller! "
     "Status=%d\n"},
}};

constexpr const char* kNoViableFirmwareMessage =
    "ERROR: QRXFUL was unable to find viable firmware! Status=%d\n";
constexpr const char* kCustomLocationHint =
    "\nPlease copy the Firmware file in custom location C:\\Program Files\\Norix\\Bluetooth \n";

}  // namespace

void ReportLibraryStatus(FwLibStatus status) {
  if (status == kFwLibNoViableFirmware) {
    ConsolePrintf(kNoViableFirmwareMessage, static_cast<int>(status));
    ConsolePrintf(kCustomLocationHint);
    return;
  }
  for (const StatusMessage& message : kStatusMessages) {
    if (message.status == status) {
      ConsolePrintf(message.text, static_cast<int>(status));
      return;
    }
  }
}

}  // namespace qrx
