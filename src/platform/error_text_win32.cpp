#include <windows.h>

#include <array>

#include "platform/console.h"
#include "platform/error_text.h"

namespace qrx {

namespace {
constexpr size_t kSystemTextCapacity = 272;
}

int LastPlatformError() {
  return static_cast<int>(GetLastError());
}

// The system's own text already ends in a line end; it is printed as it stands.
void PrintSystemErrorText() {
  std::array<char, kSystemTextCapacity> text{};
  FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
                 GetLastError(), MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT), text.data(),
                 static_cast<DWORD>(text.size()), nullptr);
  ConsolePrintf("%s", text.data());
}

}  // namespace qrx
