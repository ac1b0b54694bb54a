#include "inspect.h"

#include <cstdio>

namespace qrx::fwtool {

// Replaced by the real inspector; kept so the tool links meanwhile.
int RunInspect(int, const char* const*) {
  std::fputs("qrxfw: inspect is not available in this build\n", stderr);
  return 2;
}

}  // namespace qrx::fwtool
