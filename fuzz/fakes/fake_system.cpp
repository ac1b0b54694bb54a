// The remaining platform answers: error text from errno (the fakes set it),
// no registry, no emulation.
#include <cerrno>
#include <cstring>

#include "platform/console.h"
#include "platform/error_text.h"
#include "platform/system_query.h"

namespace qrx {

int LastPlatformError() {
  return errno;
}

void PrintSystemErrorText() {
  ConsolePrintf("%s\n", std::strerror(errno));
}

bool QueryMachineRegistryValue(const char* /*keyPath*/, const char* /*valueName*/,
                               uint8_t* /*data*/, uint32_t* /*size*/) {
  return false;
}

bool QueryProcessEmulation(bool* emulated) {
  *emulated = false;
  return true;
}

}  // namespace qrx
