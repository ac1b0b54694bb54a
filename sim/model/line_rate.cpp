#include "model/line_rate.h"

#include <cmath>

namespace qrx::sim {

std::optional<uint32_t> RateForCode(uint8_t code) {
  for (const RateCode& entry : kRateCodes) {
    if (entry.code == code) return entry.rate;
  }
  return std::nullopt;
}

bool RatesAgree(uint32_t a, uint32_t b) {
  if (a == 0 || b == 0) return a == b;
  const double ratio = static_cast<double>(a) / static_cast<double>(b);
  return std::fabs(ratio - 1.0) <= kRateTolerance;
}

}  // namespace qrx::sim
