#pragma once

#include <string>
#include <vector>

namespace qrx {

// A serial port of this machine, as the system's device database describes it.
// Fields the system does not know are empty.
struct SerialPortInfo {
  std::string device;  // /dev/ttyUSB0
  std::string byId;    // /dev/serial/by-id/usb-..., the name that survives re-plugging
  std::string driver;  // ftdi_sio, serial8250, ...
  // USB adapters only.
  std::string vendorId;  // four hex digits
  std::string productId;
  std::string manufacturer;
  std::string product;
  std::string serial;
};

// Every tty device that a driver serves (so not the virtual consoles and
// pseudo-terminals), sorted by device path. `available` is false where the
// system offers no way to list them (ports is empty then).
struct SerialPortList {
  bool available = true;
  std::vector<SerialPortInfo> ports;
};

SerialPortList ListSerialPorts();

// What the system backends share.

// The vendor and product a hardware id names, "USB\VID_0403&PID_6001&REV_0600" or an
// adapter driver's own "FTDIBUS\COMPORT&VID_0403&PID_6001" (any case), as four
// lower-case hex digits each; empty when it names none.
struct UsbIds {
  std::string vendorId;
  std::string productId;
};
UsbIds UsbIdsFromHardwareId(const std::string& hardwareId);

// Sorts ports by device name, a name's number taken as a number: COM2 before
// COM10, as Windows users count them.
void SortByPortNumber(std::vector<SerialPortInfo>& ports);

}  // namespace qrx
