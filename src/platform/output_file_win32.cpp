#include <windows.h>

#include <string>

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

int OutputFileTruncate(OutputFileHandle handle, uint64_t size) {
  LARGE_INTEGER at{};
  at.QuadPart = static_cast<LONGLONG>(size);
  if (SetFilePointerEx(Native(handle), at, nullptr, FILE_BEGIN) == FALSE) return LastError();
  return SetEndOfFile(Native(handle)) != FALSE ? 0 : LastError();
}

int OutputFileReplace(const char* hostPath, std::span<const uint8_t> bytes) {
  const std::string part =
      std::string(hostPath) + "." + std::to_string(GetCurrentProcessId()) + ".part";
  const HANDLE file = CreateFileA(part.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                                  FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return LastError();
  const auto handle = reinterpret_cast<OutputFileHandle>(file);
  int error = OutputFileWrite(handle, bytes);
  if (error == 0 && FlushFileBuffers(file) == FALSE) error = LastError();
  const int closeError = OutputFileClose(handle);
  if (error == 0) error = closeError;
  if (error == 0 && MoveFileExA(part.c_str(), hostPath,
                                MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) == FALSE) {
    error = LastError();
  }
  if (error != 0) DeleteFileA(part.c_str());
  return error;
}

}  // namespace qrx
