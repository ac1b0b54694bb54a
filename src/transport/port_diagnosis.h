#pragma once

#include <cstdint>
#include <string>

namespace qrx {

// Why a serial device would not open, as far as the system tells: the facts
// behind the explanation an operator gets (port_failure.h), one backend per
// system (port_diagnosis_posix.cpp, port_diagnosis_win32.cpp).
enum class PortFailureKind : uint8_t { kOther, kPermission, kHeld, kMissing };

struct PortDiagnosis {
  PortFailureKind kind = PortFailureKind::kOther;
  // kPermission: the device's group when the user is not among its members, and the user.
  std::string missingGroup;
  std::string userName;
  // kHeld: the process holding the device, when the system names it (pid 0: unknown).
  int64_t holderPid = 0;
  std::string holderName;
};

// error: the system's error number from the failed open.
PortDiagnosis DiagnosePortFailure(const char* path, int error);

}  // namespace qrx
