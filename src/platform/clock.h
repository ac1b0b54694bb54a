#pragma once

#include <cstdint>

namespace qrx {

// A monotonic high-resolution counter and its ticks per second.
int64_t PerformanceCounter();
int64_t PerformanceFrequency();

// Wall-clock time in microseconds since 1970-01-01 00:00 UTC, for records
// that other tools read.
int64_t WallClockMicroseconds();

void SleepMilliseconds(uint32_t milliseconds);

}  // namespace qrx
