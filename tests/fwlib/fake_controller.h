#pragma once

#include <algorithm>
#include <cstdint>
#include <deque>
#include <functional>
#include <vector>

#include "transport/hci_api.h"

namespace qrx::testing {

using Packet = std::vector<uint8_t>;
struct Reply {
  Packet bytes;        // H4 type first
  int32_t result = 0;  // the transport's receive result
};

inline Packet CommandComplete(uint8_t opcodeLow, uint8_t opcodeHigh, uint8_t status = 0) {
  return {0x04, 0x0E, 0x04, 0x01, opcodeLow, opcodeHigh, status};
}
inline Packet VendorEvent(uint8_t id, uint8_t status = 0) {
  return {0x04, 0xFF, 0x02, id, status};
}

// Stands in for the controller on the HCI transport: records every command
// and answers from a script. A read with nothing to answer fails, as a
// silent line does.
class FakeController : public IBtHciAPI {
 public:
  // Answer to the n-th command (from 0); by default its Command Complete.
  std::function<std::vector<Reply>(size_t, const Packet&)> answer = [](size_t, const Packet& c) {
    return std::vector<Reply>{{CommandComplete(c[0], c[1])}};
  };
  std::deque<Reply> later;  // served once the answers run out
  size_t failSendAt = SIZE_MAX;
  std::vector<Packet> sent;

  int32_t SendCommand(const uint8_t* command, uint32_t length) override {
    sent.emplace_back(command, command + length);
    if (sent.size() - 1 == failSendAt) return -1;
    for (Reply& reply : answer(sent.size() - 1, sent.back())) pending_.push_back(std::move(reply));
    return static_cast<int32_t>(length);
  }
  int32_t ReceivePacket(uint8_t* destination, uint32_t* length, uint32_t) override {
    std::deque<Reply>& from = pending_.empty() ? later : pending_;
    if (from.empty()) return -1;
    const Reply reply = std::move(from.front());
    from.pop_front();
    std::copy(reply.bytes.begin(), reply.bytes.end(), destination);
    *length = static_cast<uint32_t>(reply.bytes.size());
    return reply.result;
  }
  int8_t Open(int32_t) override { return 0; }
  void Close() override {}
  void SetLocalBaudRate(uint32_t) override {}
  int32_t SwitchBaudRate(uint8_t, uint32_t, uint8_t, uint8_t) override { return 0; }

 private:
  std::deque<Reply> pending_;
};

}  // namespace qrx::testing
