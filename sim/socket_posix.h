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
// Acknowledges what arrives at once rather than after the usual delay. The
// kernel drops back to delayed acknowledgements on its own, so this is asked
// again after every read.
void RequestQuickAck(int fd);
Readiness WaitReadable(int fd, int timeoutMs);
// Bytes read (0: the peer closed, -1: failure).
long ReceiveSome(int fd, std::span<uint8_t> buffer);
bool SendAll(int fd, std::span<const uint8_t> bytes);
void CloseSocket(int fd);

}  // namespace qrx::sim
