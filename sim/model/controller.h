#pragma once

// The simulated controller: it takes the host's H4 byte stream, answers each
// HCI command the way the controller does, and queues the packets it sends back.
// It does no I/O; the fronts (TCP server, pty UART) move the bytes and honour
// the delivery marks that fault injection puts on outgoing packets.

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <span>
#include <vector>

#include "model/controller_config.h"
#include "model/fault_plan.h"
#include "model/secure_send.h"

namespace qrx::sim {

// How a front must deliver a packet (bits; 0 is plainly, as one piece).
enum Delivery : uint8_t {
  kDeliverPlain = 0,
  kDeliverSplit = 1 << 0,       // in pieces of 2, 3 and the rest
  kDeliverJoinNext = 1 << 1,    // together with the packet after it
  kDeliverPrefixOnly = 1 << 2,  // an empty server message first (TCP)
  kDeliverNoise = 1 << 3,       // a noise byte right before it
  kDeliverClose = 1 << 4,       // no bytes: close the connection / line instead
};

constexpr uint8_t kNoiseByte = 0xA5;
constexpr size_t kOversizePacketSize = 300;
constexpr std::array<size_t, 2> kSplitPieces = {2, 3};  // then the rest

struct OutPacket {
  std::vector<uint8_t> bytes;
  uint8_t delivery = kDeliverPlain;
};

class Controller {
 public:
  explicit Controller(const ControllerConfig& config, FaultPlan faults = {});

  // Power-on: the ready event goes out (the TCP front's session start).
  void PowerOn();
  // Bytes from the host, any cut. Bytes between commands that cannot start
  // one are dropped (counted in DroppedBytes).
  void Receive(std::span<const uint8_t> bytes);

  bool HasOutput() const { return !out_.empty(); }
  std::optional<OutPacket> PopOutput();

  // Called with each whole command (opcode, length, parameters; no H4 byte).
  void SetCommandObserver(std::function<void(std::span<const uint8_t>)> observer) {
    observer_ = std::move(observer);
  }

  uint32_t LineRate() const { return lineRate_; }
  bool InBootloader() const { return bootloader_; }
  bool InManufacturerMode() const { return manufacturerMode_; }
  uint8_t LastManufacturerExitBits() const { return manufacturerExitBits_; }
  bool FragmentAnswersOff() const { return fragmentAnswersOff_; }
  uint8_t PatchNumber() const { return patchNumber_; }
  uint32_t CommandCount() const { return commands_; }
  uint32_t DroppedBytes() const { return dropped_; }
  // The download in progress or last ended; empty before the first header.
  const std::optional<SecureSendSession>& Download() const { return download_; }
  std::vector<uint8_t> VersionAnswer() const;

 private:
  using Packets = std::vector<OutPacket>;
  void HandleCommand(std::span<const uint8_t> command);
  Packets Answer(uint16_t opcode, std::span<const uint8_t> params);
  Packets AnswerReset(std::span<const uint8_t> params);
  Packets AnswerSecureSend(std::span<const uint8_t> params);
  Packets AnswerManufacturerMode(std::span<const uint8_t> params);
  void ApplyFaults(const std::vector<FaultSpec>& faults, Packets& packets);

  ControllerConfig config_;
  FaultPlan faults_;
  std::function<void(std::span<const uint8_t>)> observer_;
  std::vector<uint8_t> inbox_;
  std::deque<OutPacket> out_;

  bool bootloader_;
  bool manufacturerMode_ = false;
  uint8_t manufacturerExitBits_ = 0;
  bool fragmentAnswersOff_ = false;
  bool downloadCompleted_ = false;
  uint8_t patchNumber_;
  uint32_t lineRate_;
  uint32_t commands_ = 0;
  uint32_t dropped_ = 0;
  std::optional<SecureSendSession> download_;
};

}  // namespace qrx::sim
