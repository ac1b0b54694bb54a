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

// For one-line messages: the system's text without its line end.
const char* SystemErrorText(int error) {
  static std::array<char, kSystemTextCapacity> text{};
  text.fill('\0');
  DWORD length =
      FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
                     static_cast<DWORD>(error), MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT),
                     text.data(), static_cast<DWORD>(text.size()), nullptr);
  while (length > 0 && (text[length - 1] == '\n' || text[length - 1] == '\r'))
    text[--length] = '\0';
  return text.data();
}

}  // namespace qrx
