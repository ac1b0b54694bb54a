#pragma once

// The Virtual Platform Server: one client at a time over TCP, each connection
// a new session with a freshly powered controller.

#include <atomic>
#include <cstdint>
#include <string>

#include "session_settings.h"

namespace qrx::sim {

class TcpFront {
 public:
  TcpFront() = default;
  ~TcpFront();
  TcpFront(const TcpFront&) = delete;
  TcpFront& operator=(const TcpFront&) = delete;

  bool Listen(const std::string& address, uint16_t port, std::string* error);
  uint16_t Port() const { return port_; }

  // Serves clients until stop is set, or until the first client leaves when
  // settings.once. Returns the process exit status.
  int Serve(const SessionSettings& settings, const std::atomic<bool>& stop);

 private:
  void ServeClient(int fd, const SessionSettings& settings, const std::atomic<bool>& stop);

  int listenFd_ = -1;
  uint16_t port_ = 0;
};

}  // namespace qrx::sim
