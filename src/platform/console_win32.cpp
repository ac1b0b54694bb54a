#include <io.h>
#include <windows.h>

#include <cstdio>
#include <cwchar>

#include "platform/console.h"

namespace qrx {

// The C runtime takes wide and narrow text on one stream alike and writes
// both through the same text-mode conversion.
void StdoutWriteWide(const wchar_t* text) {
  std::fputws(text, stdout);
}

bool ConsoleIsTerminal() {
  return _isatty(_fileno(stderr)) != 0;
}

int ConsoleTerminalColumns() {
  CONSOLE_SCREEN_BUFFER_INFO info{};
  if (GetConsoleScreenBufferInfo(GetStdHandle(STD_ERROR_HANDLE), &info) == 0) return 0;
  return info.srWindow.Right - info.srWindow.Left + 1;
}

}  // namespace qrx
