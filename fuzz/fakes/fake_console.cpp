// The console's system half: wide text goes out narrow, and standard error is
// never a terminal, so no progress line is drawn.
#include <cstdint>
#include <cstdio>

#include "platform/console.h"

namespace qrx {

void StdoutWriteWide(const wchar_t* text) {
  for (const wchar_t* c = text; *c != L'\0'; ++c) {
    std::fputc(static_cast<uint32_t>(*c) < 0x80 ? static_cast<char>(*c) : '?', stdout);
  }
}

bool ConsoleIsTerminal() {
  return false;
}

int ConsoleTerminalColumns() {
  return 0;
}

}  // namespace qrx
