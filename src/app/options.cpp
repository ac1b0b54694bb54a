#include "app/options.h"

#include <array>
#include <cstring>

#include "app/number_text.h"
#include "app/rate_tables.h"
#include "hci/vendor_commands.h"
#include "platform/console.h"
#include "platform/trace.h"

namespace qrx {

namespace {

constexpr int kFirstOptionIndex = 3;
constexpr const char* kTraceTag = "ParseCommandLine";

// Names used in trace records only; the misspelling is intended.
const char* InterfaceName(int32_t value) {
  if (value == kInterfaceUart) return "UART";
  if (value == kInterfaceTcp) return "TCPIP";
  return "Invalid Interface";
}

const char* HostInterfaceName(int32_t value) {
  if (value == kHostInterfaceFpga) return "FPGA";
  if (value == kHostInterfaceAsic) return "ASIC";
  return "Invali Host Interface";
}

bool EqualsIgnoringCase(const char* a, const char* b) {
  auto lower = [](char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; };
  for (; *a != '\0' && *b != '\0'; ++a, ++b) {
    if (lower(*a) != lower(*b)) return false;
  }
  return *a == *b;
}

bool ApplyHostInterface(const char* value) {
  g_runOptions.hostInterface = ParseDecimal(value);
  TraceRecord(kTraceLevelInfo, kTraceTag, "host interface %s",
              HostInterfaceName(g_runOptions.hostInterface));
  if (g_runOptions.hostInterface == kHostInterfaceFpga ||
      g_runOptions.hostInterface == kHostInterfaceAsic) {
    return true;
  }
  ConsolePrintf("Invalid host interface, recheck value passed to '-h'\n\n");
  return false;
}

// A bounded copy that fails without a word when the text does not fit; the
// buffer is left empty then, as a failing bounded copy leaves it.
bool ApplyServerAddress(const char* value) {
  auto& buffer = g_runOptions.serverAddress;
  size_t length = 0;
  while (length < buffer.size() && value[length] != '\0') ++length;
  if (length == buffer.size()) {
    buffer[0] = '\0';
    TraceRecord(kTraceLevelError, kTraceTag, "server address longer than %zu characters",
                buffer.size() - 1);
    return false;
  }
  std::memcpy(buffer.data(), value, length + 1);
  return true;
}

bool ApplyPortName(const char* value) {
  g_runOptions.portName = value;
  return true;
}

bool ApplyBootAddress(const char* value) {
  SetResetBootAddress(ParseUnsignedAutoBase(value));
  for (size_t i = kResetBootAddressIndex; i < kResetBootAddressIndex + sizeof(uint32_t); ++i) {
    ConsolePrintf("Reset[%d] = %u ", static_cast<int>(i),
                  static_cast<unsigned>(g_bootAddressResetTemplate[i]));
  }
  ConsolePrintf("\n");
  g_runOptions.bootAddressGiven = true;
  return true;
}

bool ApplyReadTimeout(const char* value) {
  g_runOptions.readTimeoutMs = ParseDecimal(value);
  return true;
}

bool ApplyFlags(const char* value) {
  if (std::strcmp(value, "1") == 0) {
    g_runOptions.skipReset = true;
    return true;
  }
  // Same words as for a missing value; intended.
  ConsolePrintf("Invalid input, no value passed to '-f'\n\n");
  return false;
}

bool ApplyBdData(const char*) {
  g_runOptions.downloadBdData = true;
  return true;
}

bool ApplyBaudRate(const char* value) {
  g_runOptions.changeBaudRate = true;
  // Negative texts wrap into the unsigned rate, as the conversion always did.
  const auto rate = static_cast<uint32_t>(ParseDecimal(value));
  // The table is the one of -h as it stands now; a later -h does not remap.
  const RateMapping mapped = MapBaudRate(
      g_runOptions.hostInterface, rate, {g_runOptions.baudRateCode, g_runOptions.baudRateUnlisted});
  g_runOptions.baudRateCode = mapped.code;
  g_runOptions.baudRateUnlisted = mapped.unlisted;
  g_runOptions.baudRate = rate;
  if (rate == kPowerOnBaudRate) g_runOptions.changeBaudRate = false;
  return true;
}

bool ApplyVerbose(const char*) {
  g_runOptions.verbose = true;
  return true;
}

bool ApplyFirmwarePath(const char* value) {
  g_runOptions.firmwarePath = value;
  return true;
}

bool ApplyNoCommandComplete(const char*) {
  g_runOptions.noCommandComplete = true;
  return true;
}

struct ChainOption {
  const char* name;
  bool ignoresCase;
  bool takesValue;
  const char* missingValueMessage;   // null: a missing value silently ends the scan
  bool (*apply)(const char* value);  // false fails the parse
};

// Tested in this order against one argument. An option with a value moves on
// to the value and the options after it are tested against the value, so a
// value spelled like a later option counts as that option; intended.
constexpr std::array<ChainOption, 11> kOptionChain = {{
    {"-h", false, true, "Invalid host interface, no value passed to '-h'\n\n", ApplyHostInterface},
    {"-a", false, true, "Invalid IP address, no value passed to '-a'\n\n", ApplyServerAddress},
    {"-p", false, true, "Invalid port name, no value passed to '-p'\n\n", ApplyPortName},
    {"-b", false, true, "Invalid boot address, no value passed to '-b'\n\n", ApplyBootAddress},
    {"-t", false, true, "Invalid time out value, no value passed to '-t'\n\n", ApplyReadTimeout},
    {"-f", false, true, nullptr, ApplyFlags},  // a missing value goes unreported; intended
    {"-bd", false, false, nullptr, ApplyBdData},
    {"-r", false, true, "Invalid input, no value passed to '-r'\n\n", ApplyBaudRate},
    {"-v", false, false, nullptr, ApplyVerbose},
    {"-fw", false, true, "Invalid input, no value passed to '-fw'\n\n", ApplyFirmwarePath},
    {"-nocc", true, false, nullptr, ApplyNoCommandComplete},
}};

enum class ChainResult { kNext, kFail, kEndScan };

ChainResult RunChain(int argc, const char* const* argv, int& index) {
  for (const ChainOption& option : kOptionChain) {
    const char* argument = argv[index];
    const bool matches = option.ignoresCase ? EqualsIgnoringCase(argument, option.name)
                                            : std::strcmp(argument, option.name) == 0;
    if (!matches) continue;
    if (option.takesValue && ++index >= argc) {
      if (option.missingValueMessage == nullptr) return ChainResult::kEndScan;
      ConsolePrintf("%s", option.missingValueMessage);
      return ChainResult::kFail;
    }
    if (!option.apply(argv[index])) return ChainResult::kFail;
  }
  return ChainResult::kNext;
}

bool ScanOptions(int argc, const char* const* argv) {
  for (int index = kFirstOptionIndex; index < argc; ++index) {
    switch (RunChain(argc, argv, index)) {
      case ChainResult::kNext:
        break;
      case ChainResult::kFail:
        return false;
      case ChainResult::kEndScan:
        return true;
    }
  }
  return true;
}

}  // namespace

bool ParseCommandLine(int argc, const char* const* argv) {
  if (argc < kFirstOptionIndex) {
    ConsolePrintf("Invalid number of arguments\n\n");
    PrintUsage();
    return false;
  }
  if (std::strcmp(argv[1], "-i") != 0) {
    ConsolePrintf("'-i' is required as the first argument, please provide it.\n\n");
    return false;
  }
  g_runOptions.interface = ParseDecimal(argv[2]);
  TraceRecord(kTraceLevelInfo, kTraceTag, "interface %s", InterfaceName(g_runOptions.interface));
  if (g_runOptions.interface != kInterfaceUart && g_runOptions.interface != kInterfaceTcp) {
    ConsolePrintf("Invalid Interface, recheck value passed to -i\n\n");
    return false;
  }

  const bool scanned = ScanOptions(argc, argv);
  // Reported whether or not the scan succeeded.
  if (g_runOptions.firmwarePath == nullptr) {
    ConsolePrintf(
        "Firmware file will be picked from custom location:'C:\\Program Files\\Norix\\Bluetooth' "
        "\n");
  }
  if (g_runOptions.noCommandComplete && g_runOptions.downloadBdData) {
    ConsolePrintf("BSEQ Firmware download with DDC CCE enabled is not allowed!!\n\n");
    return false;
  }
  if (!scanned) TraceRecord(kTraceLevelError, kTraceTag, "option scan failed");
  return scanned;
}

}  // namespace qrx
