#pragma once

namespace qrx {

// Requests and faults that end the process while the run holds a link:
// interrupt, terminate, hang-up and quit (Ctrl-C, kill, a closed terminal,
// Ctrl-\), an abort, and the crash signals (a bad address, a bus error, an
// arithmetic or an illegal-instruction fault).
//
// The release runs inside the signal handler: it may only make calls that are
// safe there. Once it returns, the process ends by the signal it got, with its
// default action (a core where the system keeps cores), so the shell sees the
// usual status. A second such signal while the release runs ends the process
// at once. A signal the process was started with ignored (nohup) stays ignored.
using SignalSafeRelease = void (*)();
void CatchTerminationSignals(SignalSafeRelease release);

// Puts back what the process had before CatchTerminationSignals.
void RestoreTerminationSignals();

// A console reader that went away (a pager quit, `| head`) makes a write fail
// with an error instead of ending the process, for the rest of its life: the
// run then goes on to its end and gives its link back through the ordinary
// clean-up, and its report is written. Where the system has no such signal,
// nothing to do.
void IgnoreBrokenPipes();

}  // namespace qrx
