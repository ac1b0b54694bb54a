#pragma once

// The floor of the paced line: the smallest host that downloads over a
// serial line as the loader does (one write a command, then a blocking read
// of its Command Complete), with nothing else per fragment. What it adds to
// the wire time is what the pseudo-terminal and the machine add; the rest of
// what the loader adds is the loader's own.

#include <cstdint>
#include <string>
#include <vector>

namespace qrx::bench {

struct PtyFloorResult {
  bool ok = false;
  int64_t fragmentNs = 0;      // from the first send to the last answer
  int64_t fragmentWireNs = 0;  // what those commands and answers need on the wire
};

// Opens the terminal raw at 115200 bit/s, reads the version, switches both
// ends to `rate` (the controller's Change Baud Rate, then the terminal), then
// sends every command and reads its answer (a Command Complete, status 0),
// and last the download's completion event.
PtyFloorResult RunPtyFloorClient(const std::string& pty, uint32_t rate,
                                 const std::vector<std::vector<uint8_t>>& commands);

}  // namespace qrx::bench
