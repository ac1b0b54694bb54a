#include "app/long_options.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "platform/console.h"
#include "run/run_options.h"

namespace qrx {

namespace {

constexpr std::string_view kOurPrefix = "--";

bool ApplyTcpNoDelay(const char*) {
  g_runOptions.tcpNoDelay = true;
  return true;
}

bool ApplyFirmwareFile(const char* value) {
  g_runOptions.firmwareFile = value;
  return true;
}

bool ApplyProgressOn(const char*) {
  g_runOptions.progress = ProgressMode::kOn;
  return true;
}

bool ApplyProgressOff(const char*) {
  g_runOptions.progress = ProgressMode::kOff;
  return true;
}

bool ApplyBtsnoop(const char* value) {
  g_runOptions.btsnoopPath = value;
  return true;
}

bool ApplyReport(const char* value) {
  g_runOptions.reportPath = value;
  return true;
}

bool ApplyNoLowLatency(const char*) {
  g_runOptions.noLowLatency = true;
  return true;
}

// Whole seconds, 1 to a day: a bound a test station sets, not a tuning knob.
constexpr uint32_t kLongestTcpTimeoutSeconds = 24 * 60 * 60;
constexpr uint32_t kMillisecondsPerSecond = 1000;

bool ApplyTcpTimeout(const char* value) {
  uint32_t seconds = 0;
  bool digits = *value != '\0';
  for (const char* c = value; digits && *c != '\0'; ++c) {
    digits = *c >= '0' && *c <= '9';
    if (digits)
      seconds =
          std::min(seconds * 10 + static_cast<uint32_t>(*c - '0'), kLongestTcpTimeoutSeconds + 1);
  }
  if (!digits || seconds == 0 || seconds > kLongestTcpTimeoutSeconds) {
    ConsolePrintf("qrxbpl: the TCP read time-out must be whole seconds from 1 to %u, not '%s'\n",
                  kLongestTcpTimeoutSeconds, value);
    return false;
  }
  g_runOptions.tcpReadTimeoutMs = seconds * kMillisecondsPerSecond;
  return true;
}

// One row per double-dash option: the parser, --help, and through --help the
// man page and the completion all read this table. An option without apply
// stands alone on the command line and answers `sole` instead of a run.
struct LongOption {
  const char* name;
  const char* valueName;  // nullptr: the option takes no value
  const char* help;
  bool (*apply)(const char* value);
  LongOptionResult sole;
};

constexpr std::array<LongOption, 11> kLongOptions = {{
    {"--firmware", "FILE", "download FILE instead of searching for firmware", ApplyFirmwareFile,
     LongOptionResult::kRun},
    {"--progress", nullptr, "draw the progress line even when standard error is not a terminal",
     ApplyProgressOn, LongOptionResult::kRun},
    {"--no-progress", nullptr, "never draw the progress line and the terminal-only lines",
     ApplyProgressOff, LongOptionResult::kRun},
    {"--btsnoop", "FILE", "capture every HCI packet of the run into FILE (btsnoop format)",
     ApplyBtsnoop, LongOptionResult::kRun},
    {"--report", "FILE", "write a JSON summary of the run to FILE", ApplyReport,
     LongOptionResult::kRun},
    {"--tcp-nodelay", nullptr, "TCP: set TCP_NODELAY once the connection is made",
     ApplyTcpNoDelay, LongOptionResult::kRun},
    {"--tcp-timeout", "SECONDS", "TCP: let each read wait at most SECONDS (1 to 86400)",
     ApplyTcpTimeout, LongOptionResult::kRun},
    {"--no-low-latency", nullptr, "serial: leave the driver's latency setting as it is",
     ApplyNoLowLatency, LongOptionResult::kRun},
    {"--list-ports", nullptr, "alone: list the serial ports of this machine, then exit", nullptr,
     LongOptionResult::kListPorts},
    {"--help", nullptr, "alone: this text on standard output, then exit", nullptr,
     LongOptionResult::kHelp},
    {"--version", nullptr, "alone: the version and banner lines, then exit", nullptr,
     LongOptionResult::kVersion},
}};

// Variables the loader reads. Those with apply switch an option on when set to "1",
// or carry its value; the others are read where they take effect and are listed here for --help.
struct EnvironmentVariable {
  const char* name;
  const char* help;
  bool (*apply)(const char* value);
  bool carriesValue = false;  // the value is the option's, not "1"; the command line's wins
};

constexpr std::array<EnvironmentVariable, 6> kEnvironmentVariables = {{
    {"QRXBPL_COM<n>", "the device that -p COMn opens (default /dev/ttyS<n-1>)", nullptr},
    {"QRXBPL_DRIVE_<X>", "the directory that stands for drive letter X (default /)", nullptr},
    {"QRXBPL_TRACE_FILE", "append the trace records (hex dumps, diagnostics) to this file",
     nullptr},
    {"QRXBPL_TRACE_LEVEL", "the most detailed trace level written (default 5)", nullptr},
    {"QRXBPL_TCP_NODELAY", "set to 1: as --tcp-nodelay", ApplyTcpNoDelay},
    {"QRXBPL_TCP_TIMEOUT", "SECONDS: as --tcp-timeout SECONDS", ApplyTcpTimeout, true},
}};

constexpr int kHelpColumn = 24;

const LongOption* FindLongOption(std::string_view argument) {
  for (const LongOption& option : kLongOptions) {
    if (argument == option.name) return &option;
  }
  return nullptr;
}

// Edits (insert, delete, replace, swap of neighbours) from one text to the other.
size_t EditDistance(std::string_view a, std::string_view b) {
  std::vector<std::vector<size_t>> d(a.size() + 1, std::vector<size_t>(b.size() + 1));
  for (size_t i = 0; i <= a.size(); ++i) d[i][0] = i;
  for (size_t j = 0; j <= b.size(); ++j) d[0][j] = j;
  for (size_t i = 1; i <= a.size(); ++i) {
    for (size_t j = 1; j <= b.size(); ++j) {
      const size_t replace = d[i - 1][j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1);
      d[i][j] = std::min({d[i - 1][j] + 1, d[i][j - 1] + 1, replace});
      if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1]) {
        d[i][j] = std::min(d[i][j], d[i - 2][j - 2] + 1);
      }
    }
  }
  return d[a.size()][b.size()];
}

// The known option nearest to a mistyped one, when it is near enough to be
// what was meant: a third of its letters at most.
const LongOption* NearestLongOption(std::string_view argument) {
  const LongOption* nearest = nullptr;
  size_t best = 0;
  for (const LongOption& option : kLongOptions) {
    const size_t distance = EditDistance(argument, option.name);
    if (nearest == nullptr || distance < best) {
      nearest = &option;
      best = distance;
    }
  }
  const size_t letters = std::strlen(nearest->name) - kOurPrefix.size();
  return best * 3 <= letters ? nearest : nullptr;
}

void RefuseUnknown(const char* argument) {
  const LongOption* nearest = NearestLongOption(argument);
  if (nearest == nullptr) {
    ConsolePrintf("qrxbpl: unknown option '%s'\n", argument);
    return;
  }
  ConsolePrintf("qrxbpl: unknown option '%s' (did you mean '%s'?)\n", argument, nearest->name);
}

bool IsOurs(const char* argument) {
  return std::string_view(argument).starts_with(kOurPrefix);
}

}  // namespace

LongOptionResult ParseLongOptions(int argc, const char* const* argv) {
  // Every double-dash argument is judged before any takes effect.
  for (int index = 1; index < argc; ++index) {
    if (!IsOurs(argv[index])) continue;
    const LongOption* option = FindLongOption(argv[index]);
    if (option == nullptr) {
      RefuseUnknown(argv[index]);
      return LongOptionResult::kFailed;
    }
    if (option->apply == nullptr) {
      if (argc == 2) return option->sole;
      ConsolePrintf("qrxbpl: option '%s' must be the only argument\n", option->name);
      return LongOptionResult::kFailed;
    }
    if (option->valueName == nullptr) continue;
    // An option of ours where the value should be means the value was left out.
    if (index + 1 >= argc || FindLongOption(argv[index + 1]) != nullptr) {
      ConsolePrintf("qrxbpl: option '%s' needs a value (%s)\n", option->name, option->valueName);
      return LongOptionResult::kFailed;
    }
    ++index;
  }
  for (const EnvironmentVariable& variable : kEnvironmentVariables) {
    if (variable.apply == nullptr) continue;
    const char* value = std::getenv(variable.name);
    if (value == nullptr) continue;
    if (!variable.carriesValue) {
      if (std::strcmp(value, "1") == 0) variable.apply(value);
    } else if (*value != '\0' && !variable.apply(value)) {
      return LongOptionResult::kFailed;
    }
  }
  for (int index = 1; index < argc; ++index) {
    if (!IsOurs(argv[index])) continue;
    const LongOption* option = FindLongOption(argv[index]);
    const char* value = option->valueName != nullptr ? argv[++index] : nullptr;
    if (!option->apply(value)) return LongOptionResult::kFailed;
  }
  return LongOptionResult::kRun;
}

void PrintLongOptionsOnStdout() {
  StdoutPrintf("\nOptions of this platform:\n");
  for (const LongOption& option : kLongOptions) {
    std::string left = option.name;
    if (option.valueName != nullptr) left = left + " " + option.valueName;
    StdoutPrintf("  %-*s%s\n", kHelpColumn - 2, left.c_str(), option.help);
  }
  StdoutPrintf("\nEnvironment:\n");
  for (const EnvironmentVariable& variable : kEnvironmentVariables) {
    StdoutPrintf("  %-*s%s\n", kHelpColumn - 2, variable.name, variable.help);
  }
  StdoutFlush();
}

}  // namespace qrx
