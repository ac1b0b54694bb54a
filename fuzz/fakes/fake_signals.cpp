// Termination signals without the host: no handler is installed, a fuzzing
// process keeps its own.
#include "platform/termination_signals.h"
#include "transport/link_release.h"

namespace qrx {

void CatchTerminationSignals(SignalSafeRelease /*release*/) {}

void RestoreTerminationSignals() {}

void ReleaseHeldLinksInSignalHandler() {}

}  // namespace qrx
