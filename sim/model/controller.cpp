#include "model/controller.h"

#include <algorithm>
#include <array>

#include "model/hci_packets.h"
#include "model/line_rate.h"
#include "model/version_answer.h"
#include "platform/byte_order.h"

namespace qrx::sim {

namespace {

constexpr size_t kChangeRateParams = 6;
constexpr size_t kChangeRateValueAt = 2;
constexpr size_t kCompletionStatusIndex = kVendorStatusIndex;

std::vector<uint8_t> OversizePacket() {
  std::vector<uint8_t> acl(kOversizePacketSize, 0);
  acl[0] = kH4Acl;
  WriteLe16(acl, 3, static_cast<uint16_t>(kOversizePacketSize - 5));
  return acl;
}

bool IsCommandComplete(const OutPacket& packet) {
  return packet.bytes.size() > kCompleteStatusIndex &&
         packet.bytes[kEventCodeIndex] == kEventCommandComplete;
}

}  // namespace

Controller::Controller(const ControllerConfig& config, FaultPlan faults)
    : config_(config),
      faults_(std::move(faults)),
      bootloader_(config.startInBootloader),
      patchNumber_(config.patchNumber),
      lineRate_(kPowerOnRate) {}

void Controller::PowerOn() {
  out_.push_back({ReadyEvent(), kDeliverPlain});
}

std::optional<OutPacket> Controller::PopOutput() {
  if (out_.empty()) return std::nullopt;
  OutPacket packet = std::move(out_.front());
  out_.pop_front();
  return packet;
}

std::vector<uint8_t> Controller::VersionAnswer() const {
  return BuildVersionAnswer(config_, bootloader_, patchNumber_);
}

void Controller::Receive(std::span<const uint8_t> bytes) {
  inbox_.insert(inbox_.end(), bytes.begin(), bytes.end());
  size_t at = 0;
  while (at < inbox_.size()) {
    if (inbox_[at] != kH4Command) {
      ++dropped_;
      ++at;
      continue;
    }
    if (inbox_.size() - at < kCommandHeaderSize) break;
    const size_t total = kCommandHeaderSize + inbox_[at + 3];
    if (inbox_.size() - at < total) break;
    HandleCommand(std::span<const uint8_t>(inbox_).subspan(at + 1, total - 1));
    at += total;
  }
  inbox_.erase(inbox_.begin(), inbox_.begin() + static_cast<std::ptrdiff_t>(at));
}

void Controller::HandleCommand(std::span<const uint8_t> command) {
  ++commands_;
  if (observer_) observer_(command);
  const uint16_t opcode = ReadLe16(command, 0);
  Packets packets = Answer(opcode, command.subspan(3));
  ApplyFaults(faults_.OnCommand(opcode), packets);
  for (OutPacket& packet : packets) out_.push_back(std::move(packet));
}

Controller::Packets Controller::Answer(uint16_t opcode, std::span<const uint8_t> params) {
  switch (opcode) {
    case kOpReadVersion:
      return {{CommandComplete(opcode, kStatusSuccess, VersionAnswer())}};
    case kOpVendorReset:
      return AnswerReset(params);
    case kOpReadSecureBootParams: {
      std::vector<uint8_t> values(8, 0);
      WriteLe32(values, 0, config_.bootAddress);
      values[4] = config_.signatureScheme;
      values[5] = config_.secureBoot ? 1 : 0;
      return {{CommandComplete(opcode, kStatusSuccess, values)}};
    }
    case kOpDdcCceBlockWrite:
      if (std::ranges::equal(params, kDdcCceParams)) fragmentAnswersOff_ = true;
      return {{CommandComplete(opcode, kStatusSuccess)}};
    case kOpManufacturerMode:
      return AnswerManufacturerMode(params);
    case kOpSetBaudRateByCode:
      // The controller switches at once and says nothing: the host cannot
      // hear it any more until it follows.
      if (!params.empty()) lineRate_ = RateForCode(params[0]).value_or(lineRate_);
      return {};
    case kOpChangeBaudRate:
      if (params.size() >= kChangeRateParams && ReadLe32(params, kChangeRateValueAt) != 0) {
        lineRate_ = ReadLe32(params, kChangeRateValueAt);
      }
      return {};
    case kOpSecureSend:
      return AnswerSecureSend(params);
    default:
      break;
  }
  // Anything else is a recorded command being replayed: confirm it.
  Packets packets = {{CommandComplete(opcode, kStatusSuccess)}};
  if ((opcode & 0xFF) == kReplayConfirmedOpcodeLow) {
    packets.push_back({VendorEvent(kVendorIdReplayDone, kStatusSuccess)});
  }
  return packets;
}

Controller::Packets Controller::AnswerReset(std::span<const uint8_t> params) {
  if (!params.empty() && params[0] == kResetToBootloader) {
    bootloader_ = true;
    downloadCompleted_ = false;
  } else if (downloadCompleted_) {
    // Boot into the firmware just downloaded; without one the bootloader stays.
    bootloader_ = false;
    patchNumber_ = download_->PatchNumber();
  }
  download_.reset();
  fragmentAnswersOff_ = false;
  manufacturerMode_ = false;
  return {{CommandComplete(kOpVendorReset, kStatusSuccess)}, {ReadyEvent()}};
}

Controller::Packets Controller::AnswerManufacturerMode(std::span<const uint8_t> params) {
  if (!params.empty() && params[0] == kManufacturerEnter) {
    manufacturerMode_ = true;
  } else {
    manufacturerMode_ = false;
    manufacturerExitBits_ = params.size() > 1 ? params[1] : 0;
  }
  return {{CommandComplete(kOpManufacturerMode, kStatusSuccess)}};
}

Controller::Packets Controller::AnswerSecureSend(std::span<const uint8_t> params) {
  Packets packets;
  if (!bootloader_) {
    // Operational firmware takes no signed image.
    if (!fragmentAnswersOff_) {
      packets.push_back({CommandComplete(kOpSecureSend, kStatusCommandDisallowed)});
    }
    return packets;
  }
  if (!download_) download_.emplace(config_.signatureScheme);
  const SecureSendSession::Outcome outcome = download_->Accept(params);
  if (!fragmentAnswersOff_) {
    const bool refused = outcome == SecureSendSession::Outcome::kRefused;
    packets.push_back(
        {CommandComplete(kOpSecureSend, refused ? kStatusCommandDisallowed : kStatusSuccess)});
  }
  if (outcome == SecureSendSession::Outcome::kFinished) {
    DownloadStatus status = download_->Status();
    downloadCompleted_ = status == DownloadStatus::kSuccess;
    if (faults_.CompletionFails()) status = DownloadStatus::kInjectedFailure;
    packets.push_back({VendorEvent(kVendorIdDownloadDone, static_cast<uint8_t>(status))});
  }
  return packets;
}

void Controller::ApplyFaults(const std::vector<FaultSpec>& faults, Packets& packets) {
  for (const FaultSpec& planned : faults) {
    const FaultKind fault = planned.kind;
    OutPacket* first = packets.empty() ? nullptr : &packets.front();
    const auto firstComplete = std::ranges::find_if(packets, IsCommandComplete);
    switch (fault) {
      case FaultKind::kSilent:
        packets.clear();
        break;
      case FaultKind::kWrongEvent:
        if (first && first->bytes.size() > kEventCodeIndex) {
          uint8_t& code = first->bytes[kEventCodeIndex];
          code = code == kEventCommandStatus ? kEventCommandComplete : kEventCommandStatus;
        }
        break;
      case FaultKind::kWrongOpcode:
        if (firstComplete != packets.end()) ++firstComplete->bytes[kCompleteOpcodeIndex];
        break;
      case FaultKind::kFailedStatus:
        if (first && IsCommandComplete(*first)) {
          first->bytes[kCompleteStatusIndex] = kStatusUnspecifiedError;
        } else if (first && first->bytes.size() > kCompletionStatusIndex) {
          first->bytes[kCompletionStatusIndex] = kStatusUnspecifiedError;
        }
        break;
      case FaultKind::kUnsolicited:
        packets.insert(packets.begin(), {VendorEvent(kVendorIdDebugTrace, kStatusSuccess)});
        break;
      case FaultKind::kPendingReset:
        // The reset's answer was late and the command was lost in the reset.
        packets = {{CommandComplete(kOpVendorReset, kStatusSuccess)}};
        break;
      case FaultKind::kSplit:
        if (first) first->delivery |= kDeliverSplit;
        break;
      case FaultKind::kJoin:
        if (!first) break;
        first->delivery |= kDeliverJoinNext;
        if (packets.size() == 1) {
          packets.push_back({VendorEvent(kVendorIdDebugTrace, kStatusSuccess)});
        }
        break;
      case FaultKind::kPrefixOnly:
        if (first) first->delivery |= kDeliverPrefixOnly;
        break;
      case FaultKind::kNoise:
        if (first) first->delivery |= kDeliverNoise;
        break;
      case FaultKind::kOversize:
        if (first) first->bytes = OversizePacket();
        break;
      case FaultKind::kClose:
        packets = {{{}, kDeliverClose}};
        break;
      case FaultKind::kStrayComplete:
        packets.insert(packets.begin(), {CommandComplete(kOpStrayCommand, kStatusSuccess)});
        break;
      case FaultKind::kShortEvent:
        packets = {{{kH4Event, kEventCommandComplete, 0}}};
        break;
      case FaultKind::kScriptedBytes:
        // Whatever the bytes claim to be, they go out as one packet would.
        packets.insert(packets.begin(), {planned.bytes});
        break;
      case FaultKind::kFailedCompletion:
        break;
    }
  }
}

}  // namespace qrx::sim
