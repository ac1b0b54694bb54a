#include "command_log.h"

#include <string>

namespace qrx::sim {

CommandLog::~CommandLog() {
  if (file_) std::fclose(file_);
}

bool CommandLog::Open(const std::string& path) {
  file_ = std::fopen(path.c_str(), "w");
  return file_ != nullptr;
}

void CommandLog::Write(std::span<const uint8_t> command) {
  if (!file_) return;
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string line;
  line.reserve(command.size() * 3 + 1);
  for (uint8_t byte : command) {
    if (!line.empty()) line += ' ';
    line += kHex[byte >> 4];
    line += kHex[byte & 0x0F];
  }
  line += '\n';
  std::fputs(line.c_str(), file_);
  // Readers look at the file while the simulator still runs.
  std::fflush(file_);
}

}  // namespace qrx::sim
