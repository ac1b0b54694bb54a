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

}  // namespace qrx
