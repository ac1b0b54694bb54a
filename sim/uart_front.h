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

}  // namespace qrx::sim
