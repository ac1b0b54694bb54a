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
};

struct FaultKindInfo {
  std::string_view name;
  FaultKind kind;
  std::string_view help;
};

constexpr std::array<FaultKindInfo, 13> kFaultKinds = {{
    {"silent", FaultKind::kSilent, "the command gets no answer at all"},
    {"wrong-event", FaultKind::kWrongEvent,
     "the answer's first event has code 0x0F instead of its own"},
    {"wrong-opcode", FaultKind::kWrongOpcode,
     "the Command Complete names the opcode whose low byte is one higher"},
    {"failed-status", FaultKind::kFailedStatus,
     "the Command Complete carries status 0x1F (vendor event: its status byte)"},
    {"failed-completion", FaultKind::kFailedCompletion,
     "the n-th download completion event carries status 0x10"},
    {"unsolicited", FaultKind::kUnsolicited,
     "a vendor event 04 FF 02 2A 00 comes before the answer"},
    {"pending-reset", FaultKind::kPendingReset,
     "a late Command Complete of a vendor reset (0xFC01) comes instead of the answer"},
    {"split", FaultKind::kSplit,
     "the answer's first packet goes out in pieces of 2, 3 and the rest bytes"},
    {"join", FaultKind::kJoin,
     "the answer's first packet and the next one go out in one message / write"},
    {"prefix-only", FaultKind::kPrefixOnly,
     "TCP: a message of only the 4-byte prefix comes before the answer"},
    {"oversize", FaultKind::kOversize,
     "the answer's first packet is replaced by a 300-byte ACL packet"},
    {"noise", FaultKind::kNoise, "a noise byte 0xA5 comes right before the answer"},
    {"close", FaultKind::kClose, "the connection (or the line) is closed instead of answering"},
}};

std::string_view FaultName(FaultKind kind);

struct FaultSpec {
  FaultKind kind = FaultKind::kSilent;
  uint32_t occurrence = 1;  // fires at the occurrence-th matching command
  bool every = false;       // fires at every matching command
  std::optional<uint16_t> opcode;
};

// "KIND[@N|@*][/OPCODE]", e.g. "failed-status@3/fc09" (the third Secure Send).
std::optional<FaultSpec> ParseFaultSpec(std::string_view text, std::string* error);

class FaultPlan {
 public:
  void Add(const FaultSpec& spec) { faults_.push_back({spec, 0}); }
  bool Empty() const { return faults_.empty(); }

  // Called once per received command; returns the faults that fire on it.
  // Download completion events are counted apart, by CompletionFails.
  std::vector<FaultKind> OnCommand(uint16_t opcode);
  bool CompletionFails();

 private:
  struct Armed {
    FaultSpec spec;
    uint32_t seen;
  };
  bool Fires(Armed& armed);
  std::vector<Armed> faults_;
};

}  // namespace qrx::sim
