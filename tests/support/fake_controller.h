#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "hci/hci_api.h"

namespace qrx::test {

using Packet = std::vector<uint8_t>;
struct Reply {
  Packet bytes;        // H4 type first
  int32_t result = 0;  // the transport's receive result
};

// "04 0E 04 ..." to bytes.
Packet PacketFromHex(const std::string& hex);
inline Packet CommandComplete(uint8_t opcodeLow, uint8_t opcodeHigh, uint8_t status = 0) {
  return {0x04, 0x0E, 0x04, 0x01, opcodeLow, opcodeHigh, status};
}
inline Packet VendorEvent(uint8_t id, uint8_t status = 0) {
  return {0x04, 0xFF, 0x02, id, status};
}

// Stands in for the controller behind the UART transport. Every command sent
// is kept; what `reply` answers to a command is read before the scripted
// `answers`. A read with nothing left fails (-1), as a silent line does.
class FakeController final : public IBtHciAPI {
 public:
  std::function<std::vector<Reply>(size_t index, const Packet& command)> reply;
  std::deque<Reply> answers;
  std::vector<Packet> sent;
  size_t failSendFrom = SIZE_MAX;  // this send and every later one fail

  // One line of hex per command sent.
  std::string SentHex() const;

  int32_t SendCommand(const uint8_t* command, uint32_t length) override;
  int32_t ReceivePacket(uint8_t* destination, uint32_t* length, uint32_t timeoutMs) override;
  int8_t Open(int32_t) override { return 0; }
  void Close() override {}
  void SetLocalBaudRate(uint32_t) override {}
  int32_t SwitchBaudRate(uint8_t, uint32_t, uint8_t, uint8_t) override { return 0; }

 private:
  std::deque<Reply> replies_;
  size_t sends_ = 0;
};

}  // namespace qrx::test
