#include <cerrno>
#include <cstring>

#include "platform/console.h"
#include "platform/error_text.h"

namespace qrx {

int LastPlatformError() {
  return errno;
}

void PrintSystemErrorText() {
  ConsolePrintf("%s\n", std::strerror(errno));
}

const char* SystemErrorText(int error) {
  return std::strerror(error);
}

}  // namespace qrx
