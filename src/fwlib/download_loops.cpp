#include "fwlib/download_loops.h"

#include "fwlib/fragment_iterators.h"
#include "hci/hci_exchange.h"
#include "hci/step_lines.h"
#include "hci/vendor_commands.h"
#include "platform/console.h"
#include "run/download_progress.h"
#include "run/run_options.h"
#include "run/run_timers.h"

namespace qrx {

namespace {

// The command sits one byte into its buffer; byte 0 stays 0 and is never sent.
constexpr size_t kCommandBufferSize = 259;
constexpr size_t kCommandStart = 1;
constexpr uint32_t kSignedCommandCapacity = 258;
// Offers one byte more than the room after kCommandStart; harmless, since a
// recorded command is at most 3 + 255 = 258 bytes. Intended.
constexpr uint32_t kBseqCommandCapacity = 259;
constexpr uint32_t kMinimumEventLength = 4;

// End of a signed download: vendor event 0x06 with status 0.
constexpr uint8_t kDownloadDoneEventId = 0x06;
// A recorded command with this opcode low byte is answered by vendor event 0x19.
constexpr uint8_t kVendorAnsweredOpcodeLow = 0x2F;
constexpr uint8_t kVendorAnswerEventId = 0x19;
constexpr size_t kVendorEventStatusIndex = 4;

constexpr uint8_t kManufacturerModeOpcodeLow = static_cast<uint8_t>(kOpManufacturerMode);
constexpr uint8_t kManufacturerModeOpcodeHigh = static_cast<uint8_t>(kOpManufacturerMode >> 8);
constexpr uint8_t kResetBitSecond = 0x02;
constexpr uint8_t kResetBitFirst = 0x01;

constexpr std::array<uint8_t, kManufacturerModeCommandSize> kInitialExitManufacturerMode = {
    kManufacturerModeOpcodeLow, kManufacturerModeOpcodeHigh, 0x02, 0x00, 0x00};

using CommandBuffer = std::array<uint8_t, kCommandBufferSize>;
using EventBuffer = std::array<uint8_t, kEventBufferSize>;

unsigned long AsUnsignedLong(uint32_t value) {
  return static_cast<unsigned long>(value);
}

FwLibStatus NextCommand(FwLibContext* context, CommandBuffer& command, uint32_t capacity,
                        uint32_t* length) {
  *length = capacity;
  StartTimer(RunTimer::kPatchLibGetNext);
  const FwLibStatus status = GetNextCommand(context, command.data() + kCommandStart, length);
  StopTimer(RunTimer::kPatchLibGetNext);
  if (context != nullptr) ProgressUpdate(context->imageOffset);
  return status;
}

bool SendFragment(const CommandBuffer& command, uint32_t length) {
  StartTimer(RunTimer::kComWrite);
  const int32_t result = QRXBPLSendCommand(command.data() + kCommandStart, length);
  StopTimer(RunTimer::kComWrite);
  if (result == -1) {
    ConsolePrintf("QRXBPLSendCommand failed!\n");
    return false;
  }
  return true;
}

// One event with the link's own receive, traced as "EVT".
bool ReceiveFragmentEvent(EventBuffer& event, uint32_t* length) {
  event.fill(0);
  *length = 0;
  StartTimer(RunTimer::kComRead);
  const int32_t result = ReceiveEventDirect(event.data(), length, kEventTimeoutMs);
  StopTimer(RunTimer::kComRead);
  if (result != 0) {
    ConsolePrintf("QRXBPLRecvCommand failed!\n");
    return false;
  }
  return true;
}

// The first checks on an awaited event: long enough, and of the awaited code.
bool EventCodeAccepted(const EventBuffer& event, uint32_t length, uint8_t code) {
  if (length < kMinimumEventLength) {
    ConsolePrintf("Invalid event received! Len: %lu\n", AsUnsignedLong(length));
    return false;
  }
  if (event[kEventCodeIndex] != code) {
    // Prints the packet-type byte, not the event code; intended.
    ConsolePrintf("Unexpected Event Received! Event Code: 0x%02x\n", event[0]);
    return false;
  }
  return true;
}

// Every fragment of the acknowledged loop is answered by a Command Complete
// for it. Only the opcode's low byte is compared, as designed.
bool FragmentAccepted(const EventBuffer& event, uint32_t length, uint8_t opcodeLow) {
  if (!EventCodeAccepted(event, length, kEventCommandComplete)) return false;
  if (event[kEventOpcodeLowIndex] != opcodeLow) {
    // No line end; intended.
    ConsolePrintf("Unexpected HCI Event! OCF=0x%02x", event[kEventOpcodeLowIndex]);
    return false;
  }
  if (event[kEventStatusIndex] != 0) {
    ConsolePrintf("HCI Command Complete event failed! status: 0x%02x\n", event[kEventStatusIndex]);
    return false;
  }
  return true;
}

// After the last fragment of a signed image: the controller's end-of-download
// event, then the reset into the new firmware.
FwLibStatus FinishSignedDownload() {
  StartTimer(RunTimer::kPatchLibProcessLast);
  EventBuffer event{};
  uint32_t length = 0;
  if (QRXBPLRecvCommand(event.data(), kEventBufferSize, &length, kEventTimeoutMs) != 0) {
    ConsolePrintf("QRXBPLRecvCommand is failed!\n");
    return kFwLibInvalidEvent;
  }
  if (!EventCodeAccepted(event, length, kEventVendor)) return kFwLibInvalidEvent;
  if (event[kEventFirstParamIndex] != kDownloadDoneEventId) {
    ConsolePrintf("Unexpected HCI ID! Evt ID=0x%02x\n", event[kEventFirstParamIndex]);
    return kFwLibInvalidEvent;
  }
  if (event[kVendorEventStatusIndex] != 0) {
    ConsolePrintf("HCI event failed! status: 0x%02x\n", event[kVendorEventStatusIndex]);
    return kFwLibInvalidEvent;
  }
  StopTimer(RunTimer::kPatchLibProcessLast);
  // The download has succeeded whatever the reset does.
  if (!g_runOptions.skipReset) SendVendorReset(false);
  return kFwLibSuccess;
}

// Reads the answer to a recorded command: events of other codes are dropped
// silently until the awaited one arrives.
FwLibStatus CheckRecordedAnswer(uint8_t opcodeLow) {
  const uint8_t awaited =
      opcodeLow == kVendorAnsweredOpcodeLow ? kEventVendor : kEventCommandComplete;
  EventBuffer event{};
  uint32_t length = 0;
  do {
    if (!ReceiveFragmentEvent(event, &length)) return kFwLibInvalidEvent;
    if (length < kMinimumEventLength) {
      ConsolePrintf("Invalid event received! Len: %lu\n", AsUnsignedLong(length));
      return kFwLibInvalidEvent;
    }
  } while (event[kEventCodeIndex] != awaited);

  const uint8_t code = event[kEventCodeIndex];
  if (code == kEventCommandComplete) {
    if (event[kEventOpcodeLowIndex] != opcodeLow || event[kEventStatusIndex] != 0) {
      ConsolePrintf("Unexpected HCI Event! OCF=0x%02x, status=0x%02x\n",
                    event[kEventOpcodeLowIndex], event[kEventStatusIndex]);
      return kFwLibInvalidEvent;
    }
    return kFwLibSuccess;
  }
  if (code == kEventVendor) {
    if (event[kEventFirstParamIndex] != kVendorAnswerEventId ||
        event[kVendorEventStatusIndex] != 0) {
      ConsolePrintf("HCI Event failed! evtID=0x%02x, status=0x%02x\n", event[kEventFirstParamIndex],
                    event[kVendorEventStatusIndex]);
      return kFwLibInvalidEvent;
    }
    return kFwLibSuccess;
  }
  // Only the awaited code gets here, so this guard never fires; kept as designed.
  ConsolePrintf("Unexpected HCI Event Code! received:0x%02x\n", code);
  return kFwLibInvalidEvent;
}

// Sends one manufacturer-mode command and checks its Command Complete.
int32_t ManufacturerModeStep(StepName step,
                             const std::array<uint8_t, kManufacturerModeCommandSize>& command) {
  PrintStepName(step);
  if (QRXBPLSendCommand(command.data(), kManufacturerModeCommandSize) == -1) {
    PrintStepOutcome(StepOutcome::kSendFailed);
    return -1;
  }
  PrintStepOutcome(StepOutcome::kOk);
  PrintStepName(StepName::kManufacturerModeEvent);
  EventBuffer event{};
  uint32_t length = 0;
  const int32_t read = QRXBPLRecvCommand(event.data(), kEventBufferSize, &length, kEventTimeoutMs);
  if (read != 0) {
    PrintStepOutcome(StepOutcome::kReadFailed);
    return read;
  }
  if (event[kEventCodeIndex] != kEventCommandComplete ||
      event[kEventOpcodeLowIndex] != kManufacturerModeOpcodeLow ||
      event[kEventOpcodeHighIndex] != kManufacturerModeOpcodeHigh ||
      event[kEventStatusIndex] != 0) {
    PrintStepOutcome(StepOutcome::kEventFailed);
    return -1;
  }
  PrintStepOutcome(StepOutcome::kOk);
  return 0;
}

}  // namespace

const std::array<uint8_t, kManufacturerModeCommandSize> kEnterManufacturerModeCommand = {
    kManufacturerModeOpcodeLow, kManufacturerModeOpcodeHigh, 0x02, 0x01, 0x00};

std::array<uint8_t, kManufacturerModeCommandSize> g_exitManufacturerModeCommand =
    kInitialExitManufacturerMode;

void RestoreExitManufacturerModeCommand() {
  g_exitManufacturerModeCommand = kInitialExitManufacturerMode;
}

int32_t EnterManufacturerMode() {
  return ManufacturerModeStep(StepName::kEnterManufacturerMode, kEnterManufacturerModeCommand);
}

int32_t ExitManufacturerMode(bool setResetBits, bool secondBit) {
  if (setResetBits) {
    // Never cleared: a later exit in the same run carries these bits too; intended.
    g_exitManufacturerModeCommand[kManufacturerModeResetIndex] |=
        secondBit ? kResetBitSecond : kResetBitFirst;
  }
  return ManufacturerModeStep(StepName::kExitManufacturerMode, g_exitManufacturerModeCommand);
}

FwLibStatus DownloadSignedWithEvents(FwLibContext* context) {
  uint32_t fragment = 0;
  CommandBuffer command{};
  EventBuffer event{};
  for (;;) {
    if (g_runOptions.verbose) {
      ConsolePrintf("SFI fragment #%lu downloading...\n", AsUnsignedLong(fragment));
      ++fragment;
    }
    uint32_t length = 0;
    const FwLibStatus status = NextCommand(context, command, kSignedCommandCapacity, &length);
    if (status == kFwLibImageExhausted) return FinishSignedDownload();
    if (status != kFwLibSuccess) return status;

    const uint8_t opcodeLow = command[kCommandStart];
    if (!SendFragment(command, length)) return kFwLibIoFailure;
    uint32_t eventLength = 0;
    if (!ReceiveFragmentEvent(event, &eventLength)) return kFwLibInvalidEvent;
    if (!FragmentAccepted(event, eventLength, opcodeLow)) return kFwLibInvalidEvent;
    if (g_runOptions.verbose) ConsolePrintf("SFI fragment download complete.\n");
  }
}

FwLibStatus DownloadSignedNoEvents(FwLibContext* context) {
  if (context == nullptr) return kFwLibInvalidEvent;
  uint32_t fragment = 0;
  CommandBuffer command{};
  for (;;) {
    if (g_runOptions.verbose) {
      // Differs from the acknowledged loop's line (blank, no dots); intended.
      ConsolePrintf("SFI fragment #%lu downloading \n", AsUnsignedLong(fragment));
      ++fragment;
    }
    uint32_t length = 0;
    const FwLibStatus status = NextCommand(context, command, kSignedCommandCapacity, &length);
    if (status == kFwLibImageExhausted) return FinishSignedDownload();
    if (status != kFwLibSuccess) return status;
    if (!SendFragment(command, length)) return kFwLibIoFailure;
  }
}

FwLibStatus DownloadBseq(FwLibContext* context, bool useManufacturerMode) {
  if (useManufacturerMode && EnterManufacturerMode() != 0) return kFwLibInvalidEvent;
  uint32_t fragment = 0;
  CommandBuffer command{};
  for (;;) {
    if (g_runOptions.verbose) {
      ConsolePrintf("BSEQ fragment #%lu downloading...\n", AsUnsignedLong(fragment));
      ++fragment;
    }
    command.fill(0);
    uint32_t length = 0;
    const FwLibStatus status = NextCommand(context, command, kBseqCommandCapacity, &length);
    if (status == kFwLibImageExhausted) {
      if (!useManufacturerMode) return kFwLibImageExhausted;
      // Leaving the mode here prints and sends exactly what the stand-alone exit does.
      return ExitManufacturerMode(true, true) == 0 ? kFwLibImageExhausted : kFwLibInvalidEvent;
    }
    if (status != kFwLibSuccess) return status;

    const uint8_t opcodeLow = command[kCommandStart];
    if (!SendFragment(command, length)) return kFwLibIoFailure;
    const FwLibStatus answer = CheckRecordedAnswer(opcodeLow);
    if (answer != kFwLibSuccess) return answer;
    if (g_runOptions.verbose) ConsolePrintf("BSEQ fragment download complete.\n");
  }
}

}  // namespace qrx
