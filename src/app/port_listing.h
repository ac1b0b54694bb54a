#pragma once

namespace qrx {

// --list-ports: one line per serial port of this machine on standard output
// (device, then the stable by-id name, driver and USB identity where known),
// or "no serial ports found". False where the system cannot list them.
bool PrintSerialPortsOnStdout();

}  // namespace qrx
