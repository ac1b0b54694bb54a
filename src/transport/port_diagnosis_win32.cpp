#include <windows.h>

#include "transport/port_diagnosis.h"

namespace qrx {

// Windows names neither the holder of a port nor a group that would open it.
PortDiagnosis DiagnosePortFailure(const char* /*path*/, int error) {
  PortDiagnosis diagnosis;
  if (error == ERROR_ACCESS_DENIED) diagnosis.kind = PortFailureKind::kHeld;
  if (error == ERROR_FILE_NOT_FOUND) diagnosis.kind = PortFailureKind::kMissing;
  return diagnosis;
}

}  // namespace qrx
