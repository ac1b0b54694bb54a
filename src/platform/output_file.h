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
// Cuts the file back to its first `size` bytes (a record that did not go out whole).
int OutputFileTruncate(OutputFileHandle handle, uint64_t size);

// The file is replaced whole or not at all: the bytes go to a new file beside
// it, which is then renamed over it, so a reader sees the old content or the
// new, never a part. When anything fails the old file stays as it was and the
// new one is removed.
int OutputFileReplace(const char* hostPath, std::span<const uint8_t> bytes);

}  // namespace qrx
