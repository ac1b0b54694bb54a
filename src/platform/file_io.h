#pragma once

#include <cstdint>

namespace qrx {

// Read-only file access for the firmware files. Every call answers 0 or the
// platform's own error number.
//
// A handle is never 0 (the empty slot) while a file is open; a failed open
// leaves kInvalidFileHandle in the slot.
using FileHandle = intptr_t;
constexpr FileHandle kNoFileHandle = 0;
constexpr FileHandle kInvalidFileHandle = -1;

inline bool FileHandleIsOpen(FileHandle handle) {
  return handle != kNoFileHandle && handle != kInvalidFileHandle;
}

// Opens an existing regular file for reading; anything else (a directory, a
// device, a pipe) is refused, so this doubles as the existence test.
int FileOpenForReading(const char* hostPath, FileHandle* handle);
int FileGetSize(FileHandle handle, uint64_t* size);
// Reads up to count bytes at offset; *bytesRead is less than count only at
// the end of the file.
int FileReadAt(FileHandle handle, uint64_t offset, uint8_t* buffer, uint32_t count,
               uint32_t* bytesRead);
int FileClose(FileHandle handle);

}  // namespace qrx
