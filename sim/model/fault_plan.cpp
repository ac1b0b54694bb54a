#include "model/fault_plan.h"

#include "model/controller_config.h"

namespace qrx::sim {

std::string_view FaultName(FaultKind kind) {
  for (const FaultKindInfo& info : kFaultKinds) {
    if (info.kind == kind) return info.name;
  }
  return "?";
}

std::optional<FaultSpec> ParseFaultSpec(std::string_view text, std::string* error) {
  FaultSpec rule;
  std::string_view rest = text;
  if (const size_t slash = rest.find('/'); slash != std::string_view::npos) {
    std::string_view op = rest.substr(slash + 1);
    if (op.size() > 2 && op[0] == '0' && (op[1] == 'x' || op[1] == 'X')) op.remove_prefix(2);
    const std::optional<uint64_t> value = ParseNumber("0x" + std::string(op));
    if (!value || *value > 0xFFFF) {
      *error = "bad opcode in fault '" + std::string(text) + "'";
      return std::nullopt;
    }
    rule.opcode = static_cast<uint16_t>(*value);
    rest = rest.substr(0, slash);
  }
  if (const size_t at = rest.find('@'); at != std::string_view::npos) {
    const std::string_view where = rest.substr(at + 1);
    if (where == "*") {
      rule.every = true;
    } else {
      const std::optional<uint64_t> n = ParseNumber(where);
      if (!n || *n == 0 || *n > 0xFFFFFFFF) {
        *error = "bad count in fault '" + std::string(text) + "'";
        return std::nullopt;
      }
      rule.occurrence = static_cast<uint32_t>(*n);
    }
    rest = rest.substr(0, at);
  }
  if (const size_t colon = rest.find(':'); colon != std::string_view::npos) {
    const std::string_view hex = rest.substr(colon + 1);
    rest = rest.substr(0, colon);
    if (hex.empty() || hex.size() % 2 != 0) {
      *error = "bad bytes in fault '" + std::string(text) + "'";
      return std::nullopt;
    }
    for (size_t i = 0; i < hex.size(); i += 2) {
      const std::optional<uint64_t> value = ParseNumber("0x" + std::string(hex.substr(i, 2)));
      if (!value) {
        *error = "bad bytes in fault '" + std::string(text) + "'";
        return std::nullopt;
      }
      rule.bytes.push_back(static_cast<uint8_t>(*value));
    }
  }
  // Only scripted bytes carry bytes, and they always do.
  if ((rest == FaultName(FaultKind::kScriptedBytes)) != !rule.bytes.empty()) {
    *error = "bytes go with the bytes fault only, in '" + std::string(text) + "'";
    return std::nullopt;
  }
  for (const FaultKindInfo& info : kFaultKinds) {
    if (info.name != rest) continue;
    rule.kind = info.kind;
    return rule;
  }
  *error = "unknown fault '" + std::string(rest) + "'";
  return std::nullopt;
}

bool FaultPlan::Fires(Armed& armed) {
  ++armed.seen;
  return armed.rule.every || armed.seen == armed.rule.occurrence;
}

std::vector<FaultSpec> FaultPlan::OnCommand(uint16_t opcode) {
  std::vector<FaultSpec> firing;
  for (Armed& armed : faults_) {
    if (armed.rule.kind == FaultKind::kFailedCompletion) continue;
    if (armed.rule.opcode && *armed.rule.opcode != opcode) continue;
    if (Fires(armed)) firing.push_back(armed.rule);
  }
  return firing;
}

bool FaultPlan::CompletionFails() {
  bool fails = false;
  for (Armed& armed : faults_) {
    if (armed.rule.kind == FaultKind::kFailedCompletion && Fires(armed)) fails = true;
  }
  return fails;
}

}  // namespace qrx::sim
