#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace qrx {

// Thin stream-socket calls under the TCP client. Results and error numbers are
// the platform's own, passed through unchanged.
using SocketHandle = intptr_t;
constexpr SocketHandle kInvalidSocket = -1;

// Start-up and clean-up of the socket library (version 2.2). Where nothing
// needs starting, start-up always returns 0; both keep their place in the client.
int32_t SocketLibraryStartup();
void SocketLibraryCleanup();

// Results of an IPv4 stream/TCP address look-up; opaque to the client.
struct ServerAddressList {
  void* results = nullptr;
};

// 0, or the look-up's own error code.
int32_t LookUpTcpServer(const char* node, const char* service, ServerAddressList& found);
void FreeServerAddressList(ServerAddressList& found);

// A socket with the family, type and protocol of the first result only.
SocketHandle OpenSocketForFirst(const ServerAddressList& found);
// Connects to the first result's address: 0, or -1 with the error in LastSocketError.
int32_t ConnectToFirst(SocketHandle socket, const ServerAddressList& found);
int32_t CloseSocket(SocketHandle socket);

// The receive time-out option (SO_RCVTIMEO) as the client builds it: eight
// bytes, read as the system reads that option. A millisecond count of 0 means
// reads wait without limit. 0, or -1 with the error in LastSocketError.
constexpr size_t kReceiveTimeoutOptionSize = 8;
int32_t SetReceiveTimeout(SocketHandle socket,
                          std::span<const uint8_t, kReceiveTimeoutOptionSize> optionValue);
// Small writes go out at once instead of waiting for the previous one's ACK
// (TCP_NODELAY). 0, or -1 with the error in LastSocketError.
int32_t SetNoDelay(SocketHandle socket);

// One send / one read: the count moved, or -1 with the error in LastSocketError.
// A read of 0 means the peer closed the connection.
int64_t SendOnSocket(SocketHandle socket, std::span<const uint8_t> bytes);
int64_t ReceiveFromSocket(SocketHandle socket, std::span<uint8_t> into);

int32_t LastSocketError();

}  // namespace qrx
