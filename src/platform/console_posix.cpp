#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>

#include "platform/console.h"

namespace qrx {

namespace {
constexpr char kUnprintable = '?';
}

// Standard error has no buffer here, as the C library starts it; standard
// output carries only whole lines and is flushed where they must be seen.
void ConsoleStart() {}

// Standard output is a narrow stream here: the wide text goes out as the same
// ASCII bytes, character by character.
void StdoutWriteWide(const wchar_t* text) {
  for (const wchar_t* c = text; *c != L'\0'; ++c) {
    std::fputc((static_cast<uint32_t>(*c) < 0x80) ? static_cast<char>(*c) : kUnprintable, stdout);
  }
}

bool ConsoleIsTerminal() {
  return ::isatty(STDERR_FILENO) == 1;
}

int ConsoleTerminalColumns() {
  winsize size{};
  if (::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) != 0) return 0;
  return size.ws_col;
}

}  // namespace qrx
