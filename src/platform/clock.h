#pragma once

#include <cstdint>

namespace qrx {

// A monotonic high-resolution counter and its ticks per second.
int64_t PerformanceCounter();
int64_t PerformanceFrequency();

void SleepMilliseconds(uint32_t milliseconds);

}  // namespace qrx
