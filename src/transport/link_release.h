#pragma once

#include <array>
#include <cstdint>

namespace qrx {

// The links this process holds, kept where a termination request's handler
// can give them back (platform/termination_signals.h).

// The line rate a released serial line is left at: the controller's power-on rate.
constexpr uint32_t kSerialPowerOnRate = 115200;

// A serial device from when it is opened and locked until its own release begins.
void HoldSerialLink(intptr_t device);
void LetGoSerialLink(intptr_t device);

// A serial driver's own settings as they were before the run changed them
// (Linux: its serial flags, for low latency); only the backend looks inside.
struct SerialDriverState {
  alignas(8) std::array<unsigned char, 96> storage{};
};
// Keeps a held device's driver settings until its release puts them back;
// false when the device is not held.
bool KeepSerialDriverState(intptr_t device, const SerialDriverState& state);
void ForgetSerialDriverState(intptr_t device);
// What is kept for a held device; nullptr when nothing is.
const SerialDriverState* KeptSerialDriverState(intptr_t device);
// A socket from when it is made until it is closed.
void HoldSocketLink(intptr_t socket);
void LetGoSocketLink(intptr_t socket);

// Gives back every held link with calls that are safe in a signal handler: a
// serial driver's kept settings put back, the line at the power-on rate, its exclusivity cleared,
// its lock dropped and its device closed; a socket closed.
void ReleaseHeldLinksInSignalHandler();

// The system's half, one per link kind (serial_device_*.cpp, tcp_socket_*.cpp):
// the calls above make for one link, and nothing else.
void ReleaseSerialDeviceAtOnce(intptr_t device);
// One system call: the driver settings back as kept.
void RestoreSerialDriverAtOnce(intptr_t device, const SerialDriverState& state);
void CloseSocketAtOnce(intptr_t socket);

}  // namespace qrx
