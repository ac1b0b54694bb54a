// Termination signals and the trace file without the host: no handler is
// installed (a fuzzing process must keep its own), and the trace file is
// opened as any file.
#include <cstdio>

#include "platform/termination_signals.h"
#include "platform/trace_file.h"
#include "transport/link_release.h"

namespace qrx {

void CatchTerminationSignals(SignalSafeRelease /*release*/) {}

void RestoreTerminationSignals() {}

void ReleaseHeldLinksInSignalHandler() {}

std::FILE* OpenTraceFile(const char* path) {
  return std::fopen(path, "a");
}

}  // namespace qrx
