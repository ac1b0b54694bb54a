#include <unistd.h>

#include "platform/console.h"

namespace qrx {

bool ConsoleIsTerminal() {
  return ::isatty(STDERR_FILENO) == 1;
}

}  // namespace qrx
