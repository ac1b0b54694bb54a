#include "hci/vendor_commands.h"

#include <array>
#include <cstdio>
#include <cstring>
#include <span>

#include "hci/hci_exchange.h"
#include "hci/step_lines.h"
#include "platform/byte_order.h"
#include "platform/clock.h"
#include "platform/console.h"
#include "platform/trace.h"
#include "run/run_options.h"

namespace qrx {

namespace {

constexpr uint8_t OpcodeLow(uint16_t opcode) {
  return static_cast<uint8_t>(opcode & 0xFF);
}
constexpr uint8_t OpcodeHigh(uint16_t opcode) {
  return static_cast<uint8_t>(opcode >> 8);
}

// Command bytes as handed to the exchange: opcode (little-endian), length, parameters.
constexpr uint8_t kReadVersionParameter = 0xFF;
constexpr std::array<uint8_t, 4> kReadVersionCommand = {
    OpcodeLow(kOpReadVersion), OpcodeHigh(kOpReadVersion), 0x01, kReadVersionParameter};

constexpr std::array<uint8_t, 3> kReadSecureBootParamsCommand = {
    OpcodeLow(kOpReadSecureBootParams), OpcodeHigh(kOpReadSecureBootParams), 0x00};

// What the controller does with these four parameters is its own business.
constexpr std::array<uint8_t, 7> kDdcCceBlockWriteCommand = {
    OpcodeLow(kOpDdcCceBlockWrite), OpcodeHigh(kOpDdcCceBlockWrite), 0x04, 0x03, 0x86, 0x01, 0x01};

constexpr uint32_t kAfterReadVersionWaitMs = 100;
constexpr uint32_t kAfterResetWaitMs = 200;
constexpr uint32_t kAfterSecureBootParamsWaitMs = 100;
constexpr uint32_t kAfterDdcCceWaitMs = 100;

// Read Secure Boot Params answer: a zero here means secure boot is off.
constexpr size_t kSecureBootEnabledIndex = 12;

// Read Version answer, as event-buffer positions (the answer starts after the status byte).
constexpr size_t kVersionAnswerIndex = kEventStatusIndex + 1;
constexpr size_t kTlvImageTypeIndex = kVersionAnswerIndex + 36;
constexpr size_t kLegacyHardwareVariantIndex = kVersionAnswerIndex + 1;
constexpr size_t kLegacyFirmwareVariantIndex = kVersionAnswerIndex + 3;
constexpr size_t kLegacyPatchNumberIndex = kVersionAnswerIndex + 8;
constexpr uint8_t kTlvImageTypeBootloader = 1;
constexpr uint8_t kLegacyFirmwareVariantBootloader = 6;

struct ManufacturerModeDevice {
  uint8_t hardwareVariant;
  const char* message;
};

// Legacy parts that go through the manufacturer mode around a download.
constexpr std::array kManufacturerModeDevices = {
    ManufacturerModeDevice{0x07, "Quenby device detected, MANF_MODE enter/exit will happen\n"},
    ManufacturerModeDevice{0x08, "Tarvok device detected, MANF_MODE enter/exit will happen\n"},
};

// Set by DecideDownload and read by nothing else: intended, the routine stands alone.
bool g_decidedManufacturerMode = false;

bool IsCommandCompleteFor(std::span<const uint8_t> event, uint16_t opcode) {
  return event[kEventCodeIndex] == kEventCommandComplete &&
         ReadLe16(event, kEventOpcodeLowIndex) == opcode;
}

template <size_t N>
int32_t Send(const std::array<uint8_t, N>& command) {
  return QRXBPLSendCommand(command.data(), static_cast<uint32_t>(command.size()));
}

// One read with the link's own receive into a zeroed buffer.
int32_t ReadDirect(std::span<uint8_t, kEventBufferSize> event, uint32_t* length) {
  std::memset(event.data(), 0, event.size());
  *length = 0;
  return ReceiveEventDirect(event.data(), length, kEventTimeoutMs);
}

int32_t ReadThroughExchange(std::span<uint8_t, kEventBufferSize> event, uint32_t* length) {
  std::memset(event.data(), 0, event.size());
  *length = 0;
  return QRXBPLRecvCommand(event.data(), static_cast<uint32_t>(event.size()), length,
                           kEventTimeoutMs);
}

}  // namespace

bool ReadVersion(uint8_t* eventBytes) {
  if (eventBytes == nullptr) return false;
  const std::span<uint8_t, kEventBufferSize> event(eventBytes, kEventBufferSize);
  uint32_t length = 0;

  PrintStepName(StepName::kReadVersion);
  if (g_runOptions.interface == kInterfaceTcp) {
    // Over TCP the server speaks first; that packet is read and dropped.
    if (ReadThroughExchange(event, &length) != 0) {
      PrintStepOutcome(StepOutcome::kReadFailed);
      return false;
    }
  }
  if (Send(kReadVersionCommand) == -1) {
    PrintStepOutcome(StepOutcome::kSendFailed);
    return false;
  }

  // No bound on skipped events or resends: only a failed read or send ends it.
  for (;;) {
    PrintStepOutcome(StepOutcome::kOk);
    SleepMilliseconds(kAfterReadVersionWaitMs);
    PrintStepName(StepName::kReadVersionEvent);
    for (;;) {
      if (ReadDirect(event, &length) != 0) {
        PrintStepOutcome(StepOutcome::kReadFailed);
        return false;
      }
      if (length == 0) {
        PrintStepOutcome(StepOutcome::kCannotRead);
        return false;
      }
      if (IsCommandCompleteFor(event, kOpReadVersion)) {
        PrintStepOutcome(StepOutcome::kOk);
        return true;
      }
      if (IsCommandCompleteFor(event, kOpVendorReset)) break;
      // Vendor events, other events and other Command Completes are passed over.
    }
    // A reset's late answer arrived in place of ours: ask again.
    PrintStepOutcome(StepOutcome::kUnexpectedEvent);
    PrintStepName(StepName::kReadVersion);
    if (Send(kReadVersionCommand) == -1) {
      PrintStepOutcome(StepOutcome::kSendFailed);
      return false;
    }
  }
}

void SendVendorReset(bool toBootloader) {
  const std::array<uint8_t, kResetTemplateSize>& reset =
      toBootloader ? kToBootloaderResetTemplate : g_bootAddressResetTemplate;
  // The template keeps the H4 byte in front; the exchange takes the command after it.
  const std::span<const uint8_t> command = std::span(reset).subspan(1);

  PrintStepName(StepName::kVendorReset);
  if (QRXBPLSendCommand(command.data(), static_cast<uint32_t>(command.size())) == -1) {
    PrintStepOutcome(StepOutcome::kSendFailed);
    return;
  }
  PrintStepOutcome(StepOutcome::kOk);
  SleepMilliseconds(kAfterResetWaitMs);
  // The answer only drains the line; it is traced and not judged.
  std::array<uint8_t, kEventBufferSize> event{};
  uint32_t length = 0;
  ReadThroughExchange(event, &length);
}

void ReadSecureBootParams() {
  PrintStepName(StepName::kReadSecureBootParams);
  if (Send(kReadSecureBootParamsCommand) == -1) {
    PrintStepOutcome(StepOutcome::kSendFailed);
    return;
  }
  PrintStepOutcome(StepOutcome::kOk);
  SleepMilliseconds(kAfterSecureBootParamsWaitMs);
  PrintStepName(StepName::kSecureBootParamsEvent);

  std::array<uint8_t, kEventBufferSize> event{};
  uint32_t length = 0;
  if (ReadThroughExchange(event, &length) != 0) {
    PrintStepOutcome(StepOutcome::kReadFailed);
    return;
  }
  if (!IsCommandCompleteFor(event, kOpReadSecureBootParams) || event[kEventStatusIndex] != 0) {
    PrintStepOutcome(StepOutcome::kInvalidEvent);
    return;
  }
  PrintStepOutcome(StepOutcome::kOk);
  if (event[kSecureBootEnabledIndex] != 0) return;

  PrintStepName(StepName::kUpdateBootAddress);
  SetResetBootAddress(kSecureBootOffBootAddress);
  PrintStepOutcome(StepOutcome::kOk);

  constexpr size_t kAddressBytes = 4;
  constexpr size_t kTraceTextSize = kAddressBytes * 5 + 1;  // "0x%.2x " per byte
  std::array<char, kTraceTextSize> traceText{};
  size_t used = 0;
  for (size_t i = kResetBootAddressIndex; i < kResetBootAddressIndex + kAddressBytes; ++i) {
    const uint8_t value = g_bootAddressResetTemplate[i];
    ConsolePrintf("Reset[%d] = %02x ", static_cast<int>(i), value);
    const int written =
        std::snprintf(traceText.data() + used, traceText.size() - used, "0x%.2x ", value);
    if (written > 0) used += static_cast<size_t>(written);
  }
  ConsolePrintf("\n");
  TraceRecord(kTraceLevelVerbose, "ReadSecureBootParams", "%s", traceText.data());
}

bool WriteDdcCceBlock() {
  if (Send(kDdcCceBlockWriteCommand) == -1) return false;
  SleepMilliseconds(kAfterDdcCceWaitMs);
  std::array<uint8_t, kEventBufferSize> event{};
  uint32_t length = 0;
  for (;;) {
    if (ReadDirect(event, &length) != 0 || length == 0) return false;
    // Even the awaited answer yields false: intended, callers never look at the result.
    if (IsCommandCompleteFor(event, kOpDdcCceBlockWrite)) return false;
  }
}

bool DecideDownload(const uint8_t* eventBytes, bool tlv) {
  if (eventBytes == nullptr) {
    TraceRecord(kTraceLevelError, "DecideDownload", "no version answer");
    return true;
  }
  const std::span<const uint8_t, kEventBufferSize> event(eventBytes, kEventBufferSize);

  if (tlv) {
    if (event[kTlvImageTypeIndex] != kTlvImageTypeBootloader) return true;
    ConsolePrintf(
        "TLV Response Image Type is 01. Device in Bootloader Mode. Start FW downloading.\n");
    return false;
  }

  const uint8_t variant = event[kLegacyHardwareVariantIndex];
  for (const ManufacturerModeDevice& device : kManufacturerModeDevices) {
    if (device.hardwareVariant != variant) continue;
    ConsolePrintf("%s", device.message);
    g_decidedManufacturerMode = true;
    const uint8_t patch = event[kLegacyPatchNumberIndex];
    if (patch == 0) return false;
    ConsolePrintf("FW has already been downloaded, patch version: 0x%02x\n", patch);
    return true;
  }

  ConsolePrintf("RAM Device detected. Skipping MANF_MODE enter/exit\n");
  if (event[kLegacyFirmwareVariantIndex] == kLegacyFirmwareVariantBootloader) {
    ConsolePrintf("Device in Bootloader Mode. Start FW downloading.\n");
    return false;
  }
  if (!g_runOptions.downloadBdData) {
    ConsolePrintf("FW has already been downloaded\n");
    return true;
  }
  ConsolePrintf("Device is in Operational Mode. Start BDDATA/DDC downloading.\n");
  if (g_runOptions.baudRateCode == kDefaultBaudRateCode) return false;
  ConsolePrintf("BDData must be downloaded at baud rate 115200\n");
  return true;
}

}  // namespace qrx
