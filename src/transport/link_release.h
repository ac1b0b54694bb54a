#pragma once

#include <cstdint>

namespace qrx {

// The descriptors of the links this process holds, kept where a terminating
// signal's handler can give them back (platform/termination_signals.h).

// The line rate a released serial line is left at: the controller's power-on rate.
constexpr uint32_t kSerialPowerOnRate = 115200;

// A serial device from when it is opened and locked until its own release begins.
void HoldSerialLink(int device);
void LetGoSerialLink(int device);
// A socket from when it is made until it is closed.
void HoldSocketLink(int socket);
void LetGoSocketLink(int socket);

// Gives back every held link, each with single system calls that are safe in
// a signal handler: a serial line back at the power-on rate, its exclusivity
// cleared, its lock dropped and its descriptor closed; a socket closed.
void ReleaseHeldLinksInSignalHandler();

}  // namespace qrx
