#pragma once

// The TCP server's socket calls.

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace qrx::sim {

enum class Readiness : uint8_t { kReadable, kTimeout, kHangup, kError };

// Listens on address:port (port 0 picks a free one); *boundPort gets the port.
// Returns the listening descriptor, or -1 with the reason in *error.
int ListenTcp(const std::string& address, uint16_t port, uint16_t* boundPort, std::string* error);
// A connected client with TCP_NODELAY set, or -1.
int AcceptClient(int listenFd);
Readiness WaitReadable(int fd, int timeoutMs);
// Bytes read (0: the peer closed, -1: failure). Re-arms the quick
// acknowledgement after every read, so the client's small back-to-back
// writes never wait on a delayed ACK.
long ReceiveSome(int fd, std::span<uint8_t> buffer);
bool SendAll(int fd, std::span<const uint8_t> bytes);
void CloseSocket(int fd);

}  // namespace qrx::sim
