#pragma once

// The controller as a UART at the far end of a pseudo-terminal: raw H4 bytes
// both ways, at the line rate the two ends have agreed, or not.

#include <atomic>

#include "pty_posix.h"
#include "session_settings.h"

namespace qrx::sim {

// Serves the line until stop is set, the line is closed by a fault, or (with
// settings.once) the host closes the terminal. Each host open-to-close is a
// session with a freshly powered controller. Returns the exit status.
int ServeUart(PtyLine& line, const SessionSettings& settings, const std::atomic<bool>& stop);

// The same, with the line paced (settings.paced): bytes reach the controller,
// and its answers reach the host, only once they could have crossed the wire
// at the rate of the moment, plus settings.latencyMs each way. Each session
// ends with a line of the wire time and bytes it carried.
int ServePacedUart(PtyLine& line, const SessionSettings& settings, const std::atomic<bool>& stop);

}  // namespace qrx::sim
