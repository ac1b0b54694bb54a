#include "vps_session.h"

#include <algorithm>

#include "platform/byte_order.h"

namespace qrx::sim {

bool VpsSession::OnClientBytes(std::span<const uint8_t> bytes, std::string* error) {
  inbox_.insert(inbox_.end(), bytes.begin(), bytes.end());
  size_t at = 0;
  while (inbox_.size() - at >= kFrameHeaderSize) {
    const std::span<const uint8_t> frame(inbox_.data() + at, inbox_.size() - at);
    const uint32_t type = ReadLe32(frame, 0);
    const uint32_t length = ReadLe32(frame, 4);
    if (type != kFramePoll && type != kFrameData) {
      *error = "frame of unknown type " + std::to_string(type);
      return false;
    }
    if (type == kFramePoll && length != kPollBodySize) {
      *error = "poll frame of length " + std::to_string(length);
      return false;
    }
    if (type == kFrameData && (length < kDataReservedSize || length > kMaxFrameBody)) {
      *error = "data frame of length " + std::to_string(length);
      return false;
    }
    if (frame.size() < kFrameHeaderSize + length) break;
    if (type == kFramePoll) {
      ++polls_;
    } else {
      controller_.Receive(
          frame.subspan(kFrameHeaderSize + kDataReservedSize, length - kDataReservedSize));
    }
    at += kFrameHeaderSize + length;
  }
  inbox_.erase(inbox_.begin(), inbox_.begin() + static_cast<std::ptrdiff_t>(at));
  return true;
}

std::optional<VpsSession::Message> VpsSession::NextMessage() {
  if (polls_ == 0) return std::nullopt;
  if (ready_.empty()) Stage();
  if (ready_.empty()) return std::nullopt;
  Message message = std::move(ready_.front());
  ready_.pop_front();
  --polls_;
  return message;
}

void VpsSession::PushMessage(std::span<const uint8_t> payload) {
  Message message;
  message.bytes.resize(kMessagePrefixSize + payload.size());
  WriteLe32(message.bytes, 0, static_cast<uint32_t>(payload.size()));
  std::copy(payload.begin(), payload.end(), message.bytes.begin() + kMessagePrefixSize);
  ready_.push_back(std::move(message));
}

// Turns the controller's next packet into the messages that carry it.
void VpsSession::Stage() {
  std::optional<OutPacket> packet = controller_.PopOutput();
  if (!packet) return;
  if (packet->delivery & kDeliverClose) {
    ready_.push_back({{}, true});
    return;
  }
  if (packet->delivery & kDeliverPrefixOnly) PushMessage({});
  std::vector<uint8_t> payload;
  if (packet->delivery & kDeliverNoise) payload.push_back(kNoiseByte);
  payload.insert(payload.end(), packet->bytes.begin(), packet->bytes.end());
  if (packet->delivery & kDeliverJoinNext) {
    if (std::optional<OutPacket> next = controller_.PopOutput()) {
      payload.insert(payload.end(), next->bytes.begin(), next->bytes.end());
    }
  }
  if (!(packet->delivery & kDeliverSplit)) {
    PushMessage(payload);
    return;
  }
  size_t at = 0;
  for (size_t piece : kSplitPieces) {
    const size_t take = std::min(piece, payload.size() - at);
    if (take == 0) break;
    PushMessage(std::span<const uint8_t>(payload).subspan(at, take));
    at += take;
  }
  if (at < payload.size()) PushMessage(std::span<const uint8_t>(payload).subspan(at));
}

}  // namespace qrx::sim
