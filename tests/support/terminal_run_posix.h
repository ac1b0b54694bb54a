#pragma once

#include <string>
#include <vector>

#include "support/child_process_posix.h"

namespace qrx::test {

// Runs a program to its end with standard error on a pseudo-terminal (raw, so
// the bytes arrive as written) and standard output on a pipe: what an operator
// at a terminal would see on each. `err` holds every byte written to the terminal.
ProcessResult RunWithTerminalStderr(const std::vector<std::string>& argv, const Environment& env,
                                    int timeoutMs = 60000);

}  // namespace qrx::test
