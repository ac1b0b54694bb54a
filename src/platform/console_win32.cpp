#include <io.h>
#include <windows.h>

#include <cstdio>
#include <cwchar>

#include "platform/console.h"

namespace qrx {

// Into a pipe or a file the C runtime buffers both streams (4 KiB), so an
// unfinished line would wait for more text and die with a killed process.
// Without a buffer each write reaches the system at once, still through the
// text mode that turns every line end into CR LF.
void ConsoleStart() {
  std::setvbuf(stdout, nullptr, _IONBF, 0);
  std::setvbuf(stderr, nullptr, _IONBF, 0);
}

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
