// The fuzzed world's serial ports: none to list, and a failed open that the
// system explains no further, so the operator's text is the plain one.
#include "transport/port_diagnosis.h"
#include "transport/serial_port_list.h"

namespace qrx {

SerialPortList ListSerialPorts() {
  return {};
}

PortDiagnosis DiagnosePortFailure(const char*, int) {
  return {};
}

}  // namespace qrx
