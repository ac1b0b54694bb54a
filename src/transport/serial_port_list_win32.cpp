#include "transport/serial_port_list.h"

namespace qrx {

// The device-setup query of this system is not written yet: the listing says
// so rather than claiming there are no ports.
SerialPortList ListSerialPorts() {
  SerialPortList list;
  list.available = false;
  return list;
}

}  // namespace qrx
