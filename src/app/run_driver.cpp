#include "app/run_driver.h"

#include <array>
#include <cstring>
#include <memory>
#include <optional>

#include "app/number_text.h"
#include "app/options.h"
#include "app/orchestration.h"
#include "app/run_report.h"
#include "app/timing.h"
#include "fwlib/fwlib_context.h"
#include "hci/btzel_transport.h"
#include "hci/hci_exchange.h"
#include "hci/vendor_commands.h"
#include "platform/console.h"
#include "platform/termination_signals.h"
#include "transport/btzel_serial.h"
#include "transport/link_release.h"
#include "transport/tcp_client.h"

namespace qrx {

namespace {

// Positions in the Read Version event (H4 byte first).
constexpr size_t kVersionDataIndex = 7;
constexpr uint8_t kLegacyAnswerParamLength = 13;
constexpr size_t kSecureBootProbeByte = 8;
constexpr size_t kSecureBootProbeNextByte = 9;
// Where the version data says "bootloader".
constexpr size_t kTlvImageTypeIndex = 36;
constexpr uint8_t kTlvImageTypeBootloader = 1;
constexpr size_t kLegacyFirmwareVariantIndex = 3;
constexpr uint8_t kLegacyFirmwareVariantBootloader = 6;

constexpr size_t kComPrefixLength = 3;  // "COM"

constexpr const char* kUnresponsiveMessage =
    "The firmware download cannot proceed because the controller has become unresponsive. "
    "Please try power-cycling the controller and/or reissuing the command.\n";

// The version answer as handed to the library.
struct VersionData {
  std::array<uint8_t, kTlvBootloaderVersionLength> bytes{};
  uint8_t length = 0;
  bool isTlv = false;
};

// By the event's parameter length: exactly 13 is the legacy 9-byte answer,
// more is a TLV answer of which 90 bytes are kept. false for a short answer.
bool ClassifyAnswer(const std::array<uint8_t, kEventBufferSize>& event, VersionData& version) {
  const uint8_t paramLength = event[kEventParamLengthIndex];
  if (paramLength < kLegacyAnswerParamLength) return false;
  version = VersionData{};
  version.isTlv = paramLength > kLegacyAnswerParamLength;
  version.length = version.isTlv ? kTlvBootloaderVersionLength : kLegacyVersionLength;
  std::memcpy(version.bytes.data(), event.data() + kVersionDataIndex, version.length);
  return true;
}

bool InBootloader(const VersionData& version) {
  return version.isTlv
             ? version.bytes[kTlvImageTypeIndex] == kTlvImageTypeBootloader
             : version.bytes[kLegacyFirmwareVariantIndex] == kLegacyFirmwareVariantBootloader;
}

// "COM3" gives 3, and so does "xyz3": the prefix is not checked, as designed.
// Absent when no number follows the first three characters. Numbers beyond 32
// bits saturate rather than overflow: no such port exists.
std::optional<int32_t> ScannedComNumber(const char* portName) {
  if (std::strlen(portName) < kComPrefixLength) return std::nullopt;
  return ScanDecimal(portName + kComPrefixLength);
}

}  // namespace

std::string LinkName() {
  const RunOptions& options = g_runOptions;
  if (options.interface == kInterfaceTcp) {
    return std::string(options.serverAddress.data()) + ":" +
           (options.portName != nullptr ? options.portName : kDefaultServerPort);
  }
  if (options.interface != kInterfaceUart || options.portName == nullptr) return "";
  const std::optional<int32_t> comNumber = ScannedComNumber(options.portName);
  const std::string named = SerialDevicePathForName(options.portName, comNumber.has_value());
  return named.empty() ? SerialDevicePathForNumber(comNumber.value_or(-1)) : named;
}

namespace {

// The link of the run: the UART transport or the TCP client.
class RunLink {
 public:
  ~RunLink() { Close(); }

  bool Open(const RunOptions& options) {
    // From here to the end of Close an interrupt gives the link back before the process ends.
    CatchTerminationSignals(&ReleaseHeldLinksInSignalHandler);
    if (options.interface == kInterfaceTcp) {
      tcpOpen_ = true;
      SetServerAddress(options.serverAddress.data(), kServerAddressCapacity);
      if (!ConnectToServer(options.portName)) {
        ConsolePrintf("cannot open the port exit\n");
        return false;
      }
      return true;
    }
    // A device path or a name under /dev is opened as it stands; COMn maps to a device by number.
    const std::optional<int32_t> comNumber = ScannedComNumber(options.portName);
    SetSerialDevicePath(SerialDevicePathForName(options.portName, comNumber.has_value()).c_str());
    transport_ = std::make_unique<BTZELTransport>(kInterfaceUart);
    SetActiveTransport(transport_.get());
    // Not checked: a port that did not open shows up as a failing first command.
    (void)transport_->Open(comNumber.value_or(-1));
    return true;
  }

  void SwitchRate(const RunOptions& options) {
    if (transport_ == nullptr || !options.changeBaudRate) return;
    rateSwitched_ = true;
    (void)transport_->SwitchBaudRate(options.baudRateCode, options.baudRate, 0,
                                     options.baudRateUnlisted);
  }

  void Close() {
    if (transport_ != nullptr) {
      if (rateSwitched_) transport_->SetLocalBaudRate(kPowerOnBaudRate);
      transport_->Close();
      SetActiveTransport(nullptr);
      transport_.reset();
      SetSerialDevicePath(nullptr);
    }
    if (tcpOpen_) {
      CloseServerConnection();
      tcpOpen_ = false;
    }
    RestoreTerminationSignals();
  }

 private:
  std::unique_ptr<BTZELTransport> transport_;
  bool rateSwitched_ = false;
  bool tcpOpen_ = false;
};

bool ReadAndClassifyVersion(std::array<uint8_t, kEventBufferSize>& event, VersionData& version) {
  if (!ReadVersion(event.data())) {
    ConsolePrintf("%s", kUnresponsiveMessage);
    return false;
  }
  // A short answer ends the run silently.
  if (!ClassifyAnswer(event, version)) {
    RunReportVersionAnswer(event, "short", "");
    return false;
  }
  RunReportVersionAnswer(event, version.isTlv ? "tlv" : "legacy",
                         InBootloader(version) ? "bootloader" : "operational");
  return true;
}

bool ChooseFileType(const RunOptions& options, FirmwareFileType& type) {
  type = FirmwareFileType::kFwdat;
  // -fw names the type; without it an explicit --firmware file's own name does.
  const char* typeSource = FirmwareTypeSourcePath();
  if (typeSource != nullptr && !FirmwareTypeFromName(typeSource, type)) {
    ConsolePrintf(
        "ERROR: Invalid firmware file type specified! Please specify a valid path to a supported "
        "file type (BSEQ/SFI/FWDAT)\n");
    return false;
  }
  if (!options.downloadBdData) return true;
  if (type == FirmwareFileType::kSfi) {
    ConsolePrintf("ERROR: Unsupported file type with -bd option: \n");
    ConsolePrintf("ERROR: Please provide a BSEQ or DAT file\n");
    return false;
  }
  // A .dat file, or none, goes down the BSEQ path under -bd; intended.
  type = FirmwareFileType::kBseq;
  return true;
}

bool DownloadOverOpenLink(RunLink& link, const RunOptions& options) {
  std::array<uint8_t, kEventBufferSize> event{};
  VersionData version;
  if (!ReadAndClassifyVersion(event, version)) return false;

  if (!options.bootAddressGiven && WantsSecureBootParams(event)) ReadSecureBootParams();

  StartTimer(RunTimer::kSwitchBaudrate);
  link.SwitchRate(options);
  StopTimer(RunTimer::kSwitchBaudrate);

  FirmwareFileType type;
  if (!ChooseFileType(options, type)) return false;

  if (type != FirmwareFileType::kBseq && !InBootloader(version)) {
    ConsolePrintf(
        "The controller is already in operational mode. Attempting to reset controller to "
        "bootloader mode now.\n");
    SendVendorReset(true);
    // The new answer is not checked for the mode again; intended.
    if (!ReadAndClassifyVersion(event, version)) return false;
  }

  if (!OrchestrateDownload(version.bytes.data(), version.length, type)) return false;
  PrintTimingReport(options.interface);
  return true;
}

}  // namespace

// The raw event bytes are read whichever form the answer has; intended.
bool WantsSecureBootParams(const std::array<uint8_t, kEventBufferSize>& event) {
  const uint8_t probe = event[kSecureBootProbeByte];
  if (probe == 0x0B && event[kSecureBootProbeNextByte] >= 0x10) return true;
  return probe >= 0x11;
}

bool RunDownload() {
  const RunOptions& options = g_runOptions;
  StartTimer(RunTimer::kTotal);
  StartTimer(RunTimer::kInitialization);

  if (options.interface == kInterfaceUart && options.portName == nullptr) {
    ConsolePrintf("invalid port name, please revisit \"-p\" argument\n");
    PrintUsage();
    return false;
  }

  RunLink link;
  if (!link.Open(options)) return false;
  StopTimer(RunTimer::kInitialization);
  return DownloadOverOpenLink(link, options);  // the link closes on every path
}

}  // namespace qrx
