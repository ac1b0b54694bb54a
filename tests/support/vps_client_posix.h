#pragma once

// A scripted client of the Virtual Platform Server for tests: it writes the
// loader's frames and polls and reads the server's messages whole.

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace qrx::test {

class VpsClient {
 public:
  VpsClient() = default;
  ~VpsClient();
  VpsClient(const VpsClient&) = delete;
  VpsClient& operator=(const VpsClient&) = delete;

  // noDelay false keeps Nagle's algorithm on, as the loader's own client does.
  bool Connect(uint16_t port, bool noDelay = true);
  void Close();

  // The data frame for a command (opcode, length, parameters; 0x01 goes in front).
  static std::vector<uint8_t> DataFrame(std::span<const uint8_t> command);
  static std::vector<uint8_t> PollFrame();

  bool SendRaw(std::span<const uint8_t> bytes);
  bool SendCommand(std::span<const uint8_t> command) { return SendRaw(DataFrame(command)); }
  bool SendPoll() { return SendRaw(PollFrame()); }

  // One server message: the 4-byte prefix says how many bytes follow. The
  // bytes after the prefix, or nullopt on time-out or a closed connection.
  std::optional<std::vector<uint8_t>> ReadMessage(int timeoutMs);
  // Poll, then read one message.
  std::optional<std::vector<uint8_t>> Poll(int timeoutMs);

 private:
  bool ReadExactly(uint8_t* into, size_t count, int timeoutMs);
  int fd_ = -1;
};

}  // namespace qrx::test
