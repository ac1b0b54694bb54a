#pragma once

// Tracing on (so every packet is also hex-dumped, and that code is fuzzed
// too) into nowhere.

#include <cstdlib>

#include "platform/trace.h"

namespace qrx::fuzz {

inline void TraceIntoNothing() {
  setenv("QRXBPL_TRACE_FILE", "/dev/null", 1);
  TraceProviderRegister();
}

}  // namespace qrx::fuzz
