#pragma once

#include <cstdio>

namespace qrx {

// Opens the trace records' file for appending, creating it if need be, without
// ever waiting: a FIFO that nobody reads is skipped (null), not waited on.
// Null when it cannot be opened at once.
std::FILE* OpenTraceFile(const char* path);

}  // namespace qrx
