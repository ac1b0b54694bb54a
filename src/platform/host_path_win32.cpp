#include <windows.h>

#include "platform/host_path.h"

namespace qrx {

// The library's paths are this system's own: they are opened as they stand,
// drive letters and "\??\" prefix included. Only the encoding changes, to the
// UTF-8 the file layer takes (it widens the path again for the open).
std::string HostPathFromWindows(const wchar_t* path) {
  const int needed = WideCharToMultiByte(CP_UTF8, 0, path, -1, nullptr, 0, nullptr, nullptr);
  if (needed <= 0) return {};
  std::string host(static_cast<size_t>(needed), '\0');
  WideCharToMultiByte(CP_UTF8, 0, path, -1, host.data(), needed, nullptr, nullptr);
  host.pop_back();  // the terminator
  return host;
}

// A path the operator named is already this system's own: only widened.
std::wstring WideFromHostPath(const char* hostPath) {
  const int needed = MultiByteToWideChar(CP_UTF8, 0, hostPath, -1, nullptr, 0);
  if (needed <= 0) return {};
  std::wstring wide(static_cast<size_t>(needed), L'\0');
  MultiByteToWideChar(CP_UTF8, 0, hostPath, -1, wide.data(), needed);
  wide.pop_back();  // the terminator
  return wide;
}

}  // namespace qrx
