#pragma once

// The floor of the bench: the smallest client that speaks the server's
// framing as the loader does (a data frame and a poll per command, one read
// of the answer), with nothing else per fragment.

#include <cstdint>
#include <vector>

namespace qrx::bench {

struct FloorResult {
  bool ok = false;
  int64_t fragmentNs = 0;  // all fragments, from the first send to the last answer
};

// Connects to the server on loopback with the socket's defaults, reads the
// ready event, sends Read Version, then every command with its answer
// checked (a Command Complete with status 0), then reads the completion.
FloorResult RunFloorClient(uint16_t port, const std::vector<std::vector<uint8_t>>& commands,
                           bool noDelay);

}  // namespace qrx::bench
