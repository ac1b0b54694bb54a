#include "platform/system_query.h"

namespace qrx {

bool QueryMachineRegistryValue(const char* /*keyPath*/, const char* /*valueName*/,
                               uint8_t* /*data*/, uint32_t* /*size*/) {
  return false;
}

// Programs here are built for the machine they run on.
bool QueryProcessEmulation(bool* emulated) {
  *emulated = false;
  return true;
}

}  // namespace qrx
