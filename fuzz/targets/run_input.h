#pragma once

// The whole-run target's input, shared with the seed maker that writes it:
//   arguments, one per line, ended by a 0x00 byte;
//   one byte, the piece size the far end's bytes arrive in (0: all at once);
//   a 16-bit little-endian firmware length and that many firmware bytes;
//   the rest: the far end's bytes (controller over UART, server over TCP).

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "app/long_options.h"
#include "app/options.h"
#include "app/run_driver.h"
#include "run/run_options.h"

namespace qrx::fuzz {

struct RunInput {
  std::vector<std::string> arguments;
  uint8_t pieceSize = 0;
  std::vector<uint8_t> firmware;
  std::vector<uint8_t> farEnd;
};

constexpr size_t kMostArguments = 24;

inline RunInput ReadRunInput(std::span<const uint8_t> data) {
  RunInput input;
  size_t at = 0;
  std::string argument;
  for (; at < data.size() && data[at] != 0; ++at) {
    if (data[at] == '\n') {
      if (input.arguments.size() < kMostArguments) input.arguments.push_back(argument);
      argument.clear();
    } else {
      argument.push_back(static_cast<char>(data[at]));
    }
  }
  if (!argument.empty() && input.arguments.size() < kMostArguments) {
    input.arguments.push_back(argument);
  }
  ++at;  // the end mark
  if (at < data.size()) input.pieceSize = data[at++];
  size_t firmwareLength = 0;
  if (at + 2 <= data.size()) {
    firmwareLength = data[at] | (static_cast<size_t>(data[at + 1]) << 8);
    at += 2;
  }
  if (at > data.size()) at = data.size();
  firmwareLength = std::min(firmwareLength, data.size() - at);
  input.firmware.assign(data.begin() + at, data.begin() + at + firmwareLength);
  at += firmwareLength;
  input.farEnd.assign(data.begin() + at, data.end());
  return input;
}

inline std::vector<uint8_t> WriteRunInput(const RunInput& input) {
  std::vector<uint8_t> out;
  for (size_t i = 0; i < input.arguments.size(); ++i) {
    if (i > 0) out.push_back('\n');
    out.insert(out.end(), input.arguments[i].begin(), input.arguments[i].end());
  }
  out.push_back(0);
  out.push_back(input.pieceSize);
  out.push_back(static_cast<uint8_t>(input.firmware.size()));
  out.push_back(static_cast<uint8_t>(input.firmware.size() >> 8));
  out.insert(out.end(), input.firmware.begin(), input.firmware.end());
  out.insert(out.end(), input.farEnd.begin(), input.farEnd.end());
  return out;
}

// The program from its command line on: the long options, the design's option
// parser, then the run. A capture or report would land on the host's disk, so
// their paths are dropped. True when the run completed.
inline bool RunProgram(const std::vector<std::string>& arguments) {
  std::vector<const char*> argv{"qrxbpl"};
  for (const std::string& argument : arguments) argv.push_back(argument.c_str());
  const int argc = static_cast<int>(argv.size());
  argv.push_back(nullptr);
  g_runOptions = RunOptions{};
  if (ParseLongOptions(argc, argv.data()) != LongOptionResult::kRun) return false;
  g_runOptions.btsnoopPath = nullptr;
  g_runOptions.reportPath = nullptr;
  return ParseCommandLine(argc, argv.data()) && RunDownload();
}

}  // namespace qrx::fuzz
