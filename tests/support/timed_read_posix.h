#pragma once

#include <cstddef>
#include <cstdint>

namespace qrx::test {

// Reads from fd until count bytes came, the stream ended or timeoutMs ran out
// (0: only what is there now); returns how many came.
size_t TimedRead(int fd, uint8_t* into, size_t count, int timeoutMs);

}  // namespace qrx::test
