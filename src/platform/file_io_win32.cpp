#include <windows.h>

#include <string>

#include "platform/file_io.h"

namespace qrx {

namespace {

HANDLE Native(FileHandle handle) {
  return reinterpret_cast<HANDLE>(handle);
}

std::wstring Widen(const char* utf8) {
  const int needed = MultiByteToWideChar(CP_UTF8, 0, utf8, -1, nullptr, 0);
  if (needed <= 0) return {};
  std::wstring wide(static_cast<size_t>(needed), L'\0');
  MultiByteToWideChar(CP_UTF8, 0, utf8, -1, wide.data(), needed);
  wide.pop_back();  // the terminator
  return wide;
}

int LastError() {
  return static_cast<int>(GetLastError());
}

}  // namespace

// Read access, reads shared, existing files only, normal attributes: a
// directory fails this open, as the existence test needs.
int FileOpenForReading(const char* hostPath, FileHandle* handle) {
  *handle = kInvalidFileHandle;
  const std::wstring path = Widen(hostPath);
  const HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                  OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return LastError();
  *handle = reinterpret_cast<FileHandle>(file);
  return 0;
}

int FileGetSize(FileHandle handle, uint64_t* size) {
  LARGE_INTEGER length{};
  if (!GetFileSizeEx(Native(handle), &length)) return LastError();
  *size = static_cast<uint64_t>(length.QuadPart);
  return 0;
}

int FileReadAt(FileHandle handle, uint64_t offset, uint8_t* buffer, uint32_t count,
               uint32_t* bytesRead) {
  *bytesRead = 0;
  LARGE_INTEGER position{};
  position.QuadPart = static_cast<LONGLONG>(offset);
  if (!SetFilePointerEx(Native(handle), position, nullptr, FILE_BEGIN)) return LastError();
  uint32_t done = 0;
  while (done < count) {
    DWORD got = 0;
    if (!ReadFile(Native(handle), buffer + done, count - done, &got, nullptr)) {
      *bytesRead = done;
      return LastError();
    }
    if (got == 0) break;
    done += got;
  }
  *bytesRead = done;
  return 0;
}

int FileClose(FileHandle handle) {
  if (!CloseHandle(Native(handle))) return LastError();
  return 0;
}

}  // namespace qrx
