#include <cstdio>

#include "platform/trace_file.h"

namespace qrx {

// Opening a file here never waits on a reader: the plain append open is enough.
std::FILE* OpenTraceFile(const char* path) {
  return std::fopen(path, "a");
}

}  // namespace qrx
