#pragma once

// One direction of a paced UART line, as arithmetic only: when the bytes put
// on it have crossed, at 8N1 (10 bit times a byte), one after another, then
// a fixed delay (a USB serial adapter's latency timer). Times in nanoseconds
// on any one clock.

#include <cstddef>
#include <cstdint>

namespace qrx::sim {

constexpr int64_t kBitsPerUartByte = 10;  // start bit, 8 data bits, stop bit

class PacedWire {
 public:
  explicit PacedWire(int64_t latencyNs) : latencyNs_(latencyNs) {}

  // count bytes handed to the line at `now` at `rate` bit/s: they start once
  // the line is free. Returns when the last of them is seen at the far end.
  int64_t Put(int64_t now, size_t count, uint32_t rate);
  // When the line is idle again (the delay not counted).
  int64_t FreeAt() const { return freeAt_; }
  // Wire time and bytes so far: the floor a transfer cannot beat.
  int64_t BusyNs() const { return busyNs_; }
  uint64_t Bytes() const { return bytes_; }

 private:
  int64_t latencyNs_;
  int64_t freeAt_ = 0;
  int64_t busyNs_ = 0;
  uint64_t bytes_ = 0;
};

}  // namespace qrx::sim
