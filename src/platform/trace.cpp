#include "platform/trace.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "platform/trace_file.h"

namespace qrx {

namespace {

struct TraceState {
  std::FILE* file = nullptr;
  int level = 0;
};
TraceState g_trace;

constexpr int kDefaultTraceLevel = kTraceLevelVerbose;

}  // namespace

void TraceProviderRegister() {
  if (g_trace.file != nullptr) return;
  const char* path = std::getenv("QRXBPL_TRACE_FILE");
  if (path == nullptr || *path == '\0') return;
  g_trace.file = OpenTraceFile(path);
  if (g_trace.file == nullptr) return;
  const char* level = std::getenv("QRXBPL_TRACE_LEVEL");
  g_trace.level = (level != nullptr && *level != '\0') ? std::atoi(level) : kDefaultTraceLevel;
}

void TraceProviderUnregister() {
  if (g_trace.file == nullptr) return;
  std::fclose(g_trace.file);
  g_trace = TraceState{};
}

bool TraceEnabled(int level) {
  return g_trace.file != nullptr && level <= g_trace.level;
}

void TraceRecord(int level, const char* tag, const char* format, ...) {
  if (!TraceEnabled(level)) return;
  std::fprintf(g_trace.file, "%s ", tag);
  va_list args;
  va_start(args, format);
  std::vfprintf(g_trace.file, format, args);
  va_end(args);
  std::fputc('\n', g_trace.file);
  std::fflush(g_trace.file);
}

}  // namespace qrx
