#pragma once

// The Virtual Platform Server's side of one TCP connection, without the
// socket: client bytes in (data frames and polls, cut and joined any way TCP
// likes), server messages out. Each poll is answered by exactly one message,
// held back until the controller has something to send.

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "model/controller.h"

namespace qrx::sim {

// Client frames: u32 type, u32 length of what follows, then that many bytes.
constexpr uint32_t kFramePoll = 0;
constexpr uint32_t kFrameData = 1;
constexpr size_t kFrameHeaderSize = 8;
constexpr size_t kPollBodySize = 16;
constexpr size_t kDataReservedSize = 4;  // data frame body: reserved word, then the H4 packet
constexpr size_t kMaxFrameBody = 4096;

// Server messages: a u32 count of the bytes that follow, then those bytes.
constexpr size_t kMessagePrefixSize = 4;

class VpsSession {
 public:
  explicit VpsSession(Controller& controller) : controller_(controller) {}

  // False on a frame this server cannot read (the connection should end).
  bool OnClientBytes(std::span<const uint8_t> bytes, std::string* error);

  struct Message {
    std::vector<uint8_t> bytes;
    bool close = false;  // no bytes: end the connection
  };
  // The next message, when a poll waits and there is something to send.
  std::optional<Message> NextMessage();

  uint32_t WaitingPolls() const { return polls_; }

 private:
  void Stage();
  void PushMessage(std::span<const uint8_t> payload);

  Controller& controller_;
  std::vector<uint8_t> inbox_;
  uint32_t polls_ = 0;
  std::deque<Message> ready_;
};

}  // namespace qrx::sim
