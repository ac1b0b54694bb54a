#include "support/fake_controller.h"

#include <algorithm>
#include <cstdio>
#include <sstream>

namespace qrx::test {

Packet PacketFromHex(const std::string& hex) {
  std::istringstream in(hex);
  Packet bytes;
  for (unsigned byte = 0; in >> std::hex >> byte;) bytes.push_back(static_cast<uint8_t>(byte));
  return bytes;
}

std::string FakeController::SentHex() const {
  std::string text;
  for (const Packet& command : sent) {
    for (size_t i = 0; i < command.size(); ++i) {
      char hex[4];
      std::snprintf(hex, sizeof hex, i + 1 < command.size() ? "%02X " : "%02X\n", command[i]);
      text += hex;
    }
  }
  return text;
}

int32_t FakeController::SendCommand(const uint8_t* command, uint32_t length) {
  if (sends_++ >= failSendFrom) return -1;
  sent.emplace_back(command, command + length);
  if (reply) {
    for (Reply& r : reply(sent.size() - 1, sent.back())) replies_.push_back(std::move(r));
  }
  return static_cast<int32_t>(length + 1);  // the type byte goes out too
}

int32_t FakeController::ReceivePacket(uint8_t* destination, uint32_t* length, uint32_t) {
  std::deque<Reply>& from = replies_.empty() ? answers : replies_;
  if (from.empty()) return -1;
  const Reply next = std::move(from.front());
  from.pop_front();
  std::ranges::copy(next.bytes, destination);
  *length = static_cast<uint32_t>(next.bytes.size());
  return next.result;
}

}  // namespace qrx::test
