#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>

#include "transport/link_release.h"
#include "transport/tcp_socket.h"

namespace qrx {

namespace {
addrinfo* First(const ServerAddressList& found) {
  return static_cast<addrinfo*>(found.results);
}
}  // namespace

int32_t SocketLibraryStartup() {
  return 0;
}

void SocketLibraryCleanup() {}

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
    errno = EINVAL;
    return kInvalidSocket;
  }
  const int handle = socket(first->ai_family, first->ai_socktype, first->ai_protocol);
  if (handle < 0) return kInvalidSocket;
  HoldSocketLink(handle);
  return handle;
}

int32_t ConnectToFirst(SocketHandle socket, const ServerAddressList& found) {
  const addrinfo* first = First(found);
  if (first == nullptr) {
    errno = EINVAL;
    return -1;
  }
  return connect(socket, first->ai_addr, first->ai_addrlen) == 0 ? 0 : -1;
}

int32_t CloseSocket(SocketHandle socket) {
  LetGoSocketLink(socket);
  return close(socket) == 0 ? 0 : -1;
}

int32_t SetReceiveTimeout(SocketHandle socket, uint32_t milliseconds) {
  timeval limit{};
  limit.tv_sec = static_cast<time_t>(milliseconds / 1000);
  limit.tv_usec = static_cast<suseconds_t>(milliseconds % 1000) * 1000;
  return setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit)) == 0 ? 0 : -1;
}

int64_t SendOnSocket(SocketHandle socket, std::span<const uint8_t> bytes) {
  // A peer that has gone away must show as a failed send, not end the process.
  ssize_t sent;
  do {
    sent = send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
  } while (sent < 0 && errno == EINTR);
  return sent;
}

int64_t ReceiveFromSocket(SocketHandle socket, std::span<uint8_t> into) {
  ssize_t received;
  do {
    received = recv(socket, into.data(), into.size(), 0);
  } while (received < 0 && errno == EINTR);
  return received;
}

int32_t LastSocketError() {
  return errno;
}

}  // namespace qrx
