#pragma once

#include <string>
#include <vector>

namespace qrx {

// What an operator needs when the serial device will not open: the device,
// the system's reason, then what to do about it (the group to join, the
// process holding the device, the ports that do exist). Each line ends in
// a line end.
std::vector<std::string> ExplainPortFailure(const std::string& path, int error);

// Records the explanation of a failed open (for the run report) and prints it
// when the terminal-only lines are wanted; the designed lines around it stay
// as they are.
void NotePortFailure(const std::string& path, int error);

// The explanation of the run's failed open, one line after another; empty
// when the port opened or was never tried.
const std::string& RecordedPortFailure();

}  // namespace qrx
