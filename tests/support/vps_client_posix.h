#pragma once

// A scripted client of the Virtual Platform Server for tests: it writes the
// loader's frames and polls, and reads the server's messages whole.

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace qrx::test {

class VpsClient {
 public:
  VpsClient() = default;
  ~VpsClient() { Close(); }
  VpsClient(const VpsClient&) = delete;
  VpsClient& operator=(const VpsClient&) = delete;

  // noDelay false keeps Nagle's algorithm on, as the loader's own client does.
  bool Connect(uint16_t port, bool noDelay = true);
  void Close();

  // The data frame for a command (opcode, length, parameters; 0x01 goes in front).
  static std::vector<uint8_t> DataFrame(std::span<const uint8_t> command);
  static std::vector<uint8_t> PollFrame();

  bool SendCommand(std::span<const uint8_t> command) { return Send(DataFrame(command)); }
  // Polls, then reads one server message: the bytes after its 4-byte length
  // prefix, or nullopt on time-out or a closed connection.
  std::optional<std::vector<uint8_t>> Poll(int timeoutMs);

 private:
  bool Send(std::span<const uint8_t> bytes);
  int fd_ = -1;
};

}  // namespace qrx::test
