#include <winsock2.h>
#include <ws2tcpip.h>

#include "transport/link_release.h"
#include "transport/tcp_socket.h"

namespace qrx {

namespace {

constexpr WORD kSocketLibraryVersion = MAKEWORD(2, 2);

addrinfo* First(const ServerAddressList& found) {
  return static_cast<addrinfo*>(found.results);
}

SOCKET Native(SocketHandle socket) {
  return static_cast<SOCKET>(socket);
}

}  // namespace

int32_t SocketLibraryStartup() {
  WSADATA data{};
  return WSAStartup(kSocketLibraryVersion, &data);
}

void SocketLibraryCleanup() {
  WSACleanup();
}

int32_t LookUpTcpServer(const char* node, const char* service, ServerAddressList& found) {
  addrinfo hints{};
  hints.ai_flags = 0;
  hints.ai_family = AF_INET;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_protocol = IPPROTO_TCP;
  addrinfo* results = nullptr;
  const int status = getaddrinfo(node, service, &hints, &results);
  found.results = status == 0 ? results : nullptr;
  return status;
}

void FreeServerAddressList(ServerAddressList& found) {
  if (found.results != nullptr) freeaddrinfo(First(found));
  found.results = nullptr;
}

SocketHandle OpenSocketForFirst(const ServerAddressList& found) {
  const addrinfo* first = First(found);
  if (first == nullptr) {
    WSASetLastError(WSAEINVAL);
    return kInvalidSocket;
  }
  const SOCKET handle = socket(first->ai_family, first->ai_socktype, first->ai_protocol);
  if (handle == INVALID_SOCKET) return kInvalidSocket;
  HoldSocketLink(static_cast<intptr_t>(handle));
  return static_cast<SocketHandle>(handle);
}

int32_t ConnectToFirst(SocketHandle socket, const ServerAddressList& found) {
  const addrinfo* first = First(found);
  if (first == nullptr) {
    WSASetLastError(WSAEINVAL);
    return -1;
  }
  return connect(Native(socket), first->ai_addr, static_cast<int>(first->ai_addrlen)) == 0 ? 0 : -1;
}

int32_t CloseSocket(SocketHandle socket) {
  LetGoSocketLink(socket);
  return closesocket(Native(socket)) == 0 ? 0 : -1;
}

void CloseSocketAtOnce(intptr_t socket) {
  closesocket(static_cast<SOCKET>(socket));
}

int32_t SetNoDelay(SocketHandle socket) {
  const BOOL on = TRUE;
  return setsockopt(Native(socket), IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char*>(&on),
                    sizeof(on)) == 0
             ? 0
             : -1;
}

// The option goes down as the client built it, all eight bytes; the system
// reads one 32-bit millisecond count from the first four.
int32_t SetReceiveTimeout(SocketHandle socket,
                          std::span<const uint8_t, kReceiveTimeoutOptionSize> optionValue) {
  return setsockopt(Native(socket), SOL_SOCKET, SO_RCVTIMEO,
                    reinterpret_cast<const char*>(optionValue.data()),
                    static_cast<int>(optionValue.size())) == 0
             ? 0
             : -1;
}

int64_t SendOnSocket(SocketHandle socket, std::span<const uint8_t> bytes) {
  const int sent = send(Native(socket), reinterpret_cast<const char*>(bytes.data()),
                        static_cast<int>(bytes.size()), 0);
  return sent == SOCKET_ERROR ? -1 : sent;
}

int64_t ReceiveFromSocket(SocketHandle socket, std::span<uint8_t> into) {
  const int received =
      recv(Native(socket), reinterpret_cast<char*>(into.data()), static_cast<int>(into.size()), 0);
  return received == SOCKET_ERROR ? -1 : received;
}

int32_t LastSocketError() {
  return WSAGetLastError();
}

}  // namespace qrx
