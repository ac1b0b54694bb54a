// Termination signals without the host: no handler is installed, a fuzzing
// process keeps its own.
#include "platform/termination_signals.h"

namespace qrx {

void CatchTerminationSignals(SignalSafeRelease /*release*/) {}

void RestoreTerminationSignals() {}

void IgnoreBrokenPipes() {}

}  // namespace qrx
