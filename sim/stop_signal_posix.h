#pragma once

#include <atomic>

namespace qrx::sim {

// SIGTERM and SIGINT set *flag; the fronts look at it between waits.
// SIGPIPE is ignored (a vanished client shows as a failed send).
void InstallStopSignals(std::atomic<bool>* flag);

}  // namespace qrx::sim
