#pragma once

// Faults the simulated controller can be told to commit, each at the n-th
// command (optionally the n-th command with a given opcode) or at every one.

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qrx::sim {

enum class FaultKind : uint8_t {
  kSilent,
  kWrongEvent,
  kWrongOpcode,
  kFailedStatus,
  kFailedCompletion,
  kUnsolicited,
  kPendingReset,
  kSplit,
  kJoin,
  kPrefixOnly,
  kOversize,
  kNoise,
  kClose,
  kStrayComplete,
  kShortEvent,
  kScriptedBytes,
};

struct FaultKindInfo {
  std::string_view name;
  FaultKind kind;
  std::string_view help;
};

constexpr std::array<FaultKindInfo, 16> kFaultKinds = {{
    {"silent", FaultKind::kSilent, "no answer at all"},
    {"wrong-event", FaultKind::kWrongEvent, "first event's code is 0x0F (0x0E if it was 0x0F)"},
    {"wrong-opcode", FaultKind::kWrongOpcode, "Command Complete names opcode low byte + 1"},
    {"failed-status", FaultKind::kFailedStatus, "first event carries status 0x1F"},
    {"failed-completion", FaultKind::kFailedCompletion, "download completion carries status 0x10"},
    {"unsolicited", FaultKind::kUnsolicited, "vendor event 04 FF 02 2A 00 before the answer"},
    {"pending-reset", FaultKind::kPendingReset, "a late reset answer (CC 0xFC01) instead of it"},
    {"split", FaultKind::kSplit, "first packet in pieces: 2, 3, the rest bytes"},
    {"join", FaultKind::kJoin, "first packet and the next in one message/write"},
    {"prefix-only", FaultKind::kPrefixOnly, "TCP: a prefix-only message before the answer"},
    {"oversize", FaultKind::kOversize, "first packet replaced by a 300-byte ACL packet"},
    {"noise", FaultKind::kNoise, "noise byte 0xA5 right before the answer"},
    {"close", FaultKind::kClose, "close the connection / line instead of answering"},
    {"stray-complete", FaultKind::kStrayComplete,
     "Command Complete for another command (0x0C03) before the answer"},
    {"short-event", FaultKind::kShortEvent, "an event without parameters (04 0E 00) instead"},
    {"bytes", FaultKind::kScriptedBytes, "bytes:HEX: these bytes as they stand, before the answer"},
}};

std::string_view FaultName(FaultKind kind);

struct FaultSpec {
  FaultKind kind = FaultKind::kSilent;
  uint32_t occurrence = 1;  // fires at the occurrence-th matching command
  bool every = false;       // fires at every matching command
  std::optional<uint16_t> opcode;
  std::vector<uint8_t> bytes;  // what a scripted-bytes fault sends
};

// "KIND[@N|@*][/OPCODE]", e.g. "failed-status@3/fc09" (the third Secure Send);
// scripted bytes as "bytes:HEX[@N|@*][/OPCODE]", e.g. "bytes:04ff0101@1".
std::optional<FaultSpec> ParseFaultSpec(std::string_view text, std::string* error);

class FaultPlan {
 public:
  void Add(const FaultSpec& rule) { faults_.push_back({rule, 0}); }
  bool Empty() const { return faults_.empty(); }

  // Called once per received command; returns the faults that fire on it.
  // Download completion events are counted apart, by CompletionFails.
  std::vector<FaultSpec> OnCommand(uint16_t opcode);
  bool CompletionFails();

 private:
  struct Armed {
    FaultSpec rule;
    uint32_t seen;
  };
  bool Fires(Armed& armed);
  std::vector<Armed> faults_;
};

}  // namespace qrx::sim
