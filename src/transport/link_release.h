#pragma once

#include <cstdint>

namespace qrx {

// The links this process holds, kept where a termination request's handler
// can give them back (platform/termination_signals.h).

// The line rate a released serial line is left at: the controller's power-on rate.
constexpr uint32_t kSerialPowerOnRate = 115200;

// A serial device from when it is opened and locked until its own release begins.
void HoldSerialLink(intptr_t device);
void LetGoSerialLink(intptr_t device);
// A socket from when it is made until it is closed.
void HoldSocketLink(intptr_t socket);
void LetGoSocketLink(intptr_t socket);

// Gives back every held link with calls that are safe in a signal handler: a
// serial line back at the power-on rate, its exclusivity cleared, its lock
// dropped and its device closed; a socket closed.
void ReleaseHeldLinksInSignalHandler();

// The system's half, one per link kind (serial_device_*.cpp, tcp_socket_*.cpp):
// the calls above make for one link, and nothing else.
void ReleaseSerialDeviceAtOnce(intptr_t device);
void CloseSocketAtOnce(intptr_t socket);

}  // namespace qrx
