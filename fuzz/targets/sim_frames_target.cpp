// The simulator's readers of what a client sends: the server's frame parser
// (data frames and polls, cut anywhere) and the controller's H4 command
// reader, each answering everything it can.
//
// Input: one selector byte (bits 0-1 the controller profile, bits 2-7 the
// piece size, 0 for one piece), then the client's bytes.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "model/controller.h"
#include "model/controller_config.h"
#include "platform/console.h"
#include "vps_session.h"

namespace {

using qrx::sim::Controller;

void ServeTcp(Controller& controller, std::span<const uint8_t> bytes, size_t piece) {
  controller.PowerOn();
  qrx::sim::VpsSession session(controller);
  for (size_t at = 0; at < bytes.size(); at += piece) {
    std::string error;
    if (!session.OnClientBytes(bytes.subspan(at, std::min(piece, bytes.size() - at)), &error)) {
      return;
    }
    while (std::optional<qrx::sim::VpsSession::Message> message = session.NextMessage()) {
      if (message->close) return;
    }
  }
}

void ServeUart(Controller& controller, std::span<const uint8_t> bytes, size_t piece) {
  for (size_t at = 0; at < bytes.size(); at += piece) {
    controller.Receive(bytes.subspan(at, std::min(piece, bytes.size() - at)));
    while (std::optional<qrx::sim::OutPacket> packet = controller.PopOutput()) {
      if (packet->delivery & qrx::sim::kDeliverClose) return;
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const qrx::ConsoleCapture console;  // the console text is kept in memory, unread
  if (size < 1) return 0;
  const qrx::sim::ControllerConfig config =
      qrx::sim::ConfigForProfile(qrx::sim::kProfiles[data[0] & 0x03].profile);
  size_t piece = data[0] >> 2;
  const std::span<const uint8_t> bytes(data + 1, size - 1);
  if (piece == 0) piece = std::max<size_t>(bytes.size(), 1);
  Controller overTcp(config);
  ServeTcp(overTcp, bytes, piece);
  Controller overUart(config);
  ServeUart(overUart, bytes, piece);
  return 0;
}
