#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace qrx::test {

// Reads from fd until count bytes came, the stream ended or timeoutMs ran out
// (0: only what is there now); returns what came.
std::vector<uint8_t> TimedRead(int fd, size_t count, int timeoutMs);

}  // namespace qrx::test
