#pragma once

// One line per command the controller received, for tests and demos to read
// back what the loader sent: the command bytes (opcode, length, parameters)
// as upper-case hex, blank-separated.

#include <cstdint>
#include <cstdio>
#include <span>
#include <string>

namespace qrx::sim {

class CommandLog {
 public:
  CommandLog() = default;
  ~CommandLog();
  CommandLog(const CommandLog&) = delete;
  CommandLog& operator=(const CommandLog&) = delete;

  // Starts the file afresh; false when it cannot be written.
  bool Open(const std::string& path);
  void Write(std::span<const uint8_t> command);

 private:
  std::FILE* file_ = nullptr;
};

}  // namespace qrx::sim
