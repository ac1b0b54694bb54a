#pragma once

// The host end of the simulator's pseudo-terminal for tests: opens the slave
// raw at a chosen rate, writes H4 commands and reads H4 events.

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace qrx::test {

class PtyHost {
 public:
  PtyHost() = default;
  ~PtyHost();
  PtyHost(const PtyHost&) = delete;
  PtyHost& operator=(const PtyHost&) = delete;

  bool Open(const std::string& path, uint32_t rate);
  bool SetRate(uint32_t rate);
  void Close();

  // Writes 0x01 and the command.
  bool SendCommand(std::span<const uint8_t> command);
  bool WriteRaw(std::span<const uint8_t> bytes);
  // One H4 event packet (type, code, length, parameters), or nullopt when it
  // does not come whole within the time.
  std::optional<std::vector<uint8_t>> ReadEvent(int timeoutMs);
  // Whatever bytes arrive within the time.
  std::vector<uint8_t> ReadFor(int timeoutMs);

 private:
  bool ReadExactly(uint8_t* into, size_t count, int timeoutMs);
  int fd_ = -1;
};

}  // namespace qrx::test
