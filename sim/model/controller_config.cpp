#include "model/controller_config.h"

#include <charconv>

namespace qrx::sim {

std::optional<Profile> FindProfile(std::string_view name) {
  for (const ProfileInfo& info : kProfiles) {
    if (info.name == name) return info.profile;
  }
  return std::nullopt;
}

ControllerConfig ConfigForProfile(Profile profile) {
  ControllerConfig config;
  for (const ProfileInfo& info : kProfiles) {
    if (info.profile != profile) continue;
    config.form = info.form;
    config.startInBootloader = info.startInBootloader;
  }
  return config;
}

std::optional<uint64_t> ParseNumber(std::string_view text) {
  int base = 10;
  if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
    text.remove_prefix(2);
    base = 16;
  }
  if (text.empty()) return std::nullopt;
  uint64_t value = 0;
  const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value, base);
  if (ec != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

bool ApplyFieldOverride(ControllerConfig& config, std::string_view assignment, std::string* error) {
  const size_t eq = assignment.find('=');
  if (eq == std::string_view::npos) {
    *error = "expected FIELD=VALUE, got '" + std::string(assignment) + "'";
    return false;
  }
  const std::string_view name = assignment.substr(0, eq);
  const std::optional<uint64_t> value = ParseNumber(assignment.substr(eq + 1));
  for (const FieldInfo& field : kFields) {
    if (field.name != name) continue;
    const uint64_t limit = field.u8 ? 0xFF : field.u16 ? 0xFFFF : 0xFFFFFFFF;
    if (!value || *value > limit) {
      *error = "bad value for " + std::string(name) + ": '" +
               std::string(assignment.substr(eq + 1)) + "'";
      return false;
    }
    if (field.u8) config.*field.u8 = static_cast<uint8_t>(*value);
    if (field.u16) config.*field.u16 = static_cast<uint16_t>(*value);
    if (field.u32) config.*field.u32 = static_cast<uint32_t>(*value);
    return true;
  }
  *error = "unknown field '" + std::string(name) + "'";
  return false;
}

}  // namespace qrx::sim
