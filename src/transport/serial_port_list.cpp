#include "transport/serial_port_list.h"

#include <algorithm>
#include <cctype>
#include <string_view>
#include <tuple>

namespace qrx {

namespace {

constexpr std::string_view kVendorTag = "VID_";
constexpr std::string_view kProductTag = "PID_";
constexpr size_t kIdDigits = 4;

std::string Upper(std::string text) {
  for (char& c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return text;
}

// The four hex digits after tag, lower case; empty when they are not there.
std::string HexAfter(const std::string& upper, std::string_view tag) {
  const size_t at = upper.find(tag);
  if (at == std::string::npos || upper.size() < at + tag.size() + kIdDigits) return "";
  std::string digits = upper.substr(at + tag.size(), kIdDigits);
  for (char& c : digits) {
    if (!std::isxdigit(static_cast<unsigned char>(c))) return "";
    c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  }
  return digits;
}

// The name without its trailing digits, and those digits as a number (one
// too large to matter sorts after every real port).
std::tuple<std::string_view, uint64_t, std::string_view> SortKey(const std::string& name) {
  size_t digitsAt = name.size();
  while (digitsAt > 0 && std::isdigit(static_cast<unsigned char>(name[digitsAt - 1]))) --digitsAt;
  uint64_t number = 0;
  for (size_t i = digitsAt; i < name.size() && number < UINT32_MAX; ++i) {
    number = number * 10 + static_cast<uint64_t>(name[i] - '0');
  }
  return {std::string_view(name).substr(0, digitsAt), number, name};
}

}  // namespace

UsbIds UsbIdsFromHardwareId(const std::string& hardwareId) {
  const std::string upper = Upper(hardwareId);
  UsbIds ids{HexAfter(upper, kVendorTag), HexAfter(upper, kProductTag)};
  if (ids.vendorId.empty() || ids.productId.empty()) return {};
  return ids;
}

void SortByPortNumber(std::vector<SerialPortInfo>& ports) {
  std::sort(ports.begin(), ports.end(), [](const SerialPortInfo& a, const SerialPortInfo& b) {
    return SortKey(a.device) < SortKey(b.device);
  });
}

}  // namespace qrx
