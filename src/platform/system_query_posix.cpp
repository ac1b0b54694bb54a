#include <unistd.h>

#include <array>

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

std::string QueryHostName() {
  // The longest name the system hands out, and its terminator.
  std::array<char, 256> name{};
  if (::gethostname(name.data(), name.size() - 1) != 0) return "";
  return name.data();
}

}  // namespace qrx
