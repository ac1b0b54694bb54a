#include <io.h>

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

}  // namespace qrx
