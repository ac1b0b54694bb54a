// Trace records go to a buffer in memory, whatever path names them: each is
// formatted and flushed as on the host, without a system call.
#include <array>
#include <cstdio>

#include "fake_world.h"
#include "platform/trace_file.h"

namespace qrx {

namespace {
std::array<char, 1 << 16> g_records;
std::FILE* g_traceFile = nullptr;
}  // namespace

namespace fuzz {
void RewindFakeTraceFile() {
  if (g_traceFile != nullptr) std::rewind(g_traceFile);
}
}  // namespace fuzz

std::FILE* OpenTraceFile(const char* /*path*/) {
  g_traceFile = fmemopen(g_records.data(), g_records.size(), "w");
  return g_traceFile;
}

}  // namespace qrx
