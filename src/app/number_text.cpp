#include "app/number_text.h"

#include <limits>

namespace qrx {

namespace {

bool IsBlank(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

// Digit value in any base up to 16, or 16 for a character that is no digit.
unsigned DigitValue(char c) {
  if (c >= '0' && c <= '9') return static_cast<unsigned>(c - '0');
  if (c >= 'a' && c <= 'f') return static_cast<unsigned>(c - 'a' + 10);
  if (c >= 'A' && c <= 'F') return static_cast<unsigned>(c - 'A' + 10);
  return 16;
}

// Skips blanks and a sign; returns true for a minus.
bool SkipBlanksAndSign(const char*& p) {
  while (IsBlank(*p)) ++p;
  const bool negative = *p == '-';
  if (*p == '-' || *p == '+') ++p;
  return negative;
}

}  // namespace

int32_t ParseDecimal(const char* text) {
  if (text == nullptr) return 0;
  const char* p = text;
  const bool negative = SkipBlanksAndSign(p);
  // Accumulate the magnitude with one step of headroom so saturation is exact.
  constexpr int64_t kLimit = static_cast<int64_t>(std::numeric_limits<int32_t>::max()) + 1;
  int64_t magnitude = 0;
  for (; DigitValue(*p) < 10; ++p) {
    magnitude = magnitude * 10 + DigitValue(*p);
    if (magnitude > kLimit) magnitude = kLimit;
  }
  if (negative) return static_cast<int32_t>(-magnitude);
  return magnitude >= kLimit ? std::numeric_limits<int32_t>::max()
                             : static_cast<int32_t>(magnitude);
}

std::optional<int32_t> ScanDecimal(const char* text) {
  if (text == nullptr) return std::nullopt;
  const char* p = text;
  SkipBlanksAndSign(p);
  if (DigitValue(*p) >= 10) return std::nullopt;
  return ParseDecimal(text);
}

uint32_t ParseUnsignedAutoBase(const char* text) {
  if (text == nullptr) return 0;
  const char* p = text;
  const bool negative = SkipBlanksAndSign(p);
  unsigned base = 10;
  if (p[0] == '0' && (p[1] == 'x' || p[1] == 'X') && DigitValue(p[2]) < 16) {
    base = 16;
    p += 2;
  } else if (p[0] == '0') {
    base = 8;
  }
  constexpr uint64_t kMax = std::numeric_limits<uint32_t>::max();
  uint64_t value = 0;
  bool overflow = false;
  for (; DigitValue(*p) < base; ++p) {
    value = value * base + DigitValue(*p);
    if (value > kMax) {
      overflow = true;
      value = kMax;
    }
  }
  if (overflow) return std::numeric_limits<uint32_t>::max();
  const auto result = static_cast<uint32_t>(value);
  return negative ? static_cast<uint32_t>(0u - result) : result;
}

}  // namespace qrx
