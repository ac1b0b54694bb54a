#pragma once

#include <cstdint>
#include <span>

namespace qrx {

// Files the loader writes for the operator (captures, reports). Every call
// answers 0 or the platform's own error number.
using OutputFileHandle = intptr_t;
constexpr OutputFileHandle kNoOutputFile = -1;

// Creates the file, or empties an existing one.
int OutputFileCreate(const char* hostPath, OutputFileHandle* handle);
// Writes all of bytes with one call to the system where it takes them at
// once, so a process that ends between two writes leaves whole records.
int OutputFileWrite(OutputFileHandle handle, std::span<const uint8_t> bytes);
int OutputFileClose(OutputFileHandle handle);

}  // namespace qrx
