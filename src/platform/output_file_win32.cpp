#include <windows.h>

#include "platform/output_file.h"

namespace qrx {

namespace {

HANDLE Native(OutputFileHandle handle) {
  return reinterpret_cast<HANDLE>(handle);
}

int LastError() {
  return static_cast<int>(GetLastError());
}

}  // namespace

int OutputFileCreate(const char* hostPath, OutputFileHandle* handle) {
  *handle = kNoOutputFile;
  const HANDLE file = CreateFileA(hostPath, GENERIC_WRITE, FILE_SHARE_READ, nullptr, CREATE_ALWAYS,
                                  FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return LastError();
  *handle = reinterpret_cast<OutputFileHandle>(file);
  return 0;
}

int OutputFileWrite(OutputFileHandle handle, std::span<const uint8_t> bytes) {
  size_t done = 0;
  while (done < bytes.size()) {
    DWORD wrote = 0;
    if (WriteFile(Native(handle), bytes.data() + done, static_cast<DWORD>(bytes.size() - done),
                  &wrote, nullptr) == FALSE) {
      return LastError();
    }
    done += wrote;
  }
  return 0;
}

int OutputFileClose(OutputFileHandle handle) {
  if (handle == kNoOutputFile) return ERROR_INVALID_HANDLE;
  return CloseHandle(Native(handle)) != FALSE ? 0 : LastError();
}

}  // namespace qrx
