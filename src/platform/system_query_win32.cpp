#include <windows.h>

#include "platform/system_query.h"

namespace qrx {

bool QueryMachineRegistryValue(const char* keyPath, const char* valueName, uint8_t* data,
                               uint32_t* size) {
  HKEY key = nullptr;
  if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, keyPath, 0, KEY_READ, &key) != ERROR_SUCCESS) {
    return false;
  }
  DWORD length = *size;
  const LONG result = RegQueryValueExA(key, valueName, nullptr, nullptr, data, &length);
  RegCloseKey(key);
  if (result != ERROR_SUCCESS) return false;
  *size = length;
  return true;
}

bool QueryProcessEmulation(bool* emulated) {
  BOOL underEmulation = FALSE;
  if (!IsWow64Process(GetCurrentProcess(), &underEmulation)) return false;
  *emulated = underEmulation != FALSE;
  return true;
}

std::string QueryHostName() {
  char name[MAX_COMPUTERNAME_LENGTH + 1] = {};
  DWORD size = sizeof name;
  return GetComputerNameA(name, &size) != FALSE ? std::string(name, size) : std::string();
}

}  // namespace qrx
