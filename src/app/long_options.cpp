#include "app/long_options.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>

#include "platform/console.h"
#include "run/run_options.h"

namespace qrx {

namespace {

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

struct LongOption {
  const char* name;
  bool takesValue;
  bool (*apply)(const char* value);
};

constexpr std::array<LongOption, 8> kLongOptions = {{
    {"--tcp-nodelay", false, ApplyTcpNoDelay},
    {"--firmware", true, ApplyFirmwareFile},
    {"--progress", false, ApplyProgressOn},
    {"--no-progress", false, ApplyProgressOff},
    {"--btsnoop", true, ApplyBtsnoop},
    {"--report", true, ApplyReport},
    {"--no-low-latency", false, ApplyNoLowLatency},
    {"--tcp-timeout", true, ApplyTcpTimeout},
}};

// Variables that switch an option on when set to "1".
struct FlagVariable {
  const char* name;
  bool (*apply)(const char* value);
};

constexpr std::array<FlagVariable, 1> kFlagVariables = {{
    {"QRXBPL_TCP_NODELAY", ApplyTcpNoDelay},
}};

// Variables that carry an option's value; the command line's option wins.
constexpr std::array<FlagVariable, 1> kValueVariables = {{
    {"QRXBPL_TCP_TIMEOUT", ApplyTcpTimeout},
}};

const LongOption* FindLongOption(const char* argument) {
  for (const LongOption& option : kLongOptions) {
    if (std::strcmp(argument, option.name) == 0) return &option;
  }
  return nullptr;
}

// Recognised only as the one argument: anywhere else they are unknown
// arguments, which the design ignores.
struct SoleOption {
  const char* name;
  LongOptionResult result;
};

constexpr std::array<SoleOption, 2> kSoleOptions = {{
    {"--help", LongOptionResult::kHelp},
    {"--version", LongOptionResult::kVersion},
}};

}  // namespace

LongOptionResult ParseLongOptions(int argc, const char* const* argv) {
  if (argc == 2) {
    for (const SoleOption& option : kSoleOptions) {
      if (std::strcmp(argv[1], option.name) == 0) return option.result;
    }
  }
  for (const FlagVariable& variable : kFlagVariables) {
    const char* value = std::getenv(variable.name);
    if (value != nullptr && std::strcmp(value, "1") == 0) variable.apply(value);
  }
  for (const FlagVariable& variable : kValueVariables) {
    const char* value = std::getenv(variable.name);
    if (value != nullptr && *value != '\0' && !variable.apply(value)) {
      return LongOptionResult::kFailed;
    }
  }
  for (int index = 1; index < argc; ++index) {
    const LongOption* option = FindLongOption(argv[index]);
    if (option == nullptr) continue;
    const char* value = nullptr;
    if (option->takesValue) {
      if (index + 1 >= argc) {
        ConsolePrintf("qrxbpl: %s needs a value\n", option->name);
        return LongOptionResult::kFailed;
      }
      value = argv[++index];
    }
    if (!option->apply(value)) return LongOptionResult::kFailed;
  }
  return LongOptionResult::kRun;
}

}  // namespace qrx
