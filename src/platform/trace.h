#pragma once

namespace qrx {

// Diagnostic trace records. Off unless QRXBPL_TRACE_FILE names a file;
// QRXBPL_TRACE_LEVEL (default 5) is the most detailed level written.
// Records never reach the console.
constexpr int kTraceLevelError = 2;
constexpr int kTraceLevelInfo = 4;
constexpr int kTraceLevelVerbose = 5;

void TraceProviderRegister();
void TraceProviderUnregister();

// True when a record at this level would be written; the cost when tracing
// is off is this one test.
bool TraceEnabled(int level);

// One record: the tag, a blank, the formatted text, a line end.
void TraceRecord(int level, const char* tag, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

}  // namespace qrx
