#include "paced_wire.h"

#include <algorithm>

namespace qrx::sim {

namespace {
constexpr int64_t kNsPerSecond = 1'000'000'000;
}

int64_t PacedWire::Put(int64_t now, size_t count, uint32_t rate) {
  // A rate of 0 (a terminal set to B0) carries nothing; count it as the slowest line.
  const int64_t bitsPerSecond = std::max<int64_t>(rate, 1);
  const int64_t ns = static_cast<int64_t>(count) * kBitsPerUartByte * kNsPerSecond / bitsPerSecond;
  freeAt_ = std::max(freeAt_, now) + ns;
  busyNs_ += ns;
  bytes_ += count;
  return freeAt_ + latencyNs_;
}

}  // namespace qrx::sim
