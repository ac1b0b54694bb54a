#include "app/port_listing.h"

#include <array>
#include <string>

#include "platform/console.h"
#include "transport/serial_port_list.h"

namespace qrx {
namespace {

// The fields after the device, each shown only when the system knows it.
struct Field {
  const char* label;
  std::string SerialPortInfo::*value;
};

constexpr std::array<Field, 5> kFields = {{
    {"by-id", &SerialPortInfo::byId},
    {"driver", &SerialPortInfo::driver},
    {"manufacturer", &SerialPortInfo::manufacturer},
    {"product", &SerialPortInfo::product},
    {"serial", &SerialPortInfo::serial},
}};

}  // namespace

bool PrintSerialPortsOnStdout() {
  const SerialPortList list = ListSerialPorts();
  if (!list.available) {
    ConsolePrintf("qrxbpl: listing the serial ports is not available on this system yet\n");
    return false;
  }
  if (list.ports.empty()) StdoutPrintf("no serial ports found\n");
  for (const SerialPortInfo& port : list.ports) {
    std::string line = port.device;
    for (const Field& field : kFields) {
      const std::string& value = port.*field.value;
      if (!value.empty()) line += std::string("  ") + field.label + "=" + value;
      // The USB identity goes right after the driver that serves it.
      if (field.value == &SerialPortInfo::driver && !port.vendorId.empty()) {
        line += "  usb=" + port.vendorId + ":" + port.productId;
      }
    }
    StdoutPrintf("%s\n", line.c_str());
  }
  StdoutFlush();
  return true;
}

}  // namespace qrx
