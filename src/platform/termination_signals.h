#pragma once

namespace qrx {

// Interrupt, terminate and hang-up requests (Ctrl-C, kill, a closed terminal)
// while the run holds a link.
//
// The release runs inside the signal handler: it may only make calls that are
// safe there. Once it returns, the process ends by the signal it got, so the
// shell sees the usual status. A second such signal while the release runs
// ends the process at once. A signal the process was started with ignored
// (nohup) stays ignored.
using SignalSafeRelease = void (*)();
void CatchTerminationSignals(SignalSafeRelease release);

// Puts back what the process had before CatchTerminationSignals.
void RestoreTerminationSignals();

}  // namespace qrx
