#include "tcp_front.h"

#include <array>

#include "platform/console.h"
#include "socket_posix.h"
#include "vps_session.h"

namespace qrx::sim {

namespace {
// How often a blocked wait looks at the stop flag.
constexpr int kStopCheckMs = 100;
constexpr size_t kReceiveBufferSize = 4096;
}  // namespace

TcpFront::~TcpFront() {
  CloseSocket(listenFd_);
}

bool TcpFront::Listen(const std::string& address, uint16_t port, std::string* error) {
  listenFd_ = ListenTcp(address, port, &port_, error);
  return listenFd_ >= 0;
}

int TcpFront::Serve(const SessionSettings& settings, const std::atomic<bool>& stop) {
  while (!stop.load()) {
    const Readiness ready = WaitReadable(listenFd_, kStopCheckMs);
    if (ready == Readiness::kTimeout) continue;
    if (ready != Readiness::kReadable) return 1;
    const int fd = AcceptClient(listenFd_);
    if (fd < 0) continue;
    if (!settings.delayedAck) RequestQuickAck(fd);
    ServeClient(fd, settings, stop);
    if (settings.once) break;
  }
  return 0;
}

void TcpFront::ServeClient(int fd, const SessionSettings& settings, const std::atomic<bool>& stop) {
  Controller controller = NewSessionController(settings);
  controller.PowerOn();
  VpsSession session(controller);
  std::array<uint8_t, kReceiveBufferSize> buffer;
  bool open = true;
  while (open && !stop.load()) {
    const Readiness ready = WaitReadable(fd, kStopCheckMs);
    if (ready == Readiness::kTimeout) continue;
    if (ready != Readiness::kReadable) break;
    const long count = ReceiveSome(fd, buffer);
    if (count <= 0) break;
    // Prompt acknowledgements, so the client's small back-to-back writes
    // never wait on a delayed ACK; --delayed-ack leaves the kernel's default.
    if (!settings.delayedAck) RequestQuickAck(fd);
    std::string error;
    if (!session.OnClientBytes(std::span<const uint8_t>(buffer.data(), count), &error)) {
      ConsolePrintf("qrxvps: closing the connection: %s\n", error.c_str());
      break;
    }
    while (std::optional<VpsSession::Message> message = session.NextMessage()) {
      if (message->close || !SendAll(fd, message->bytes)) {
        open = false;
        break;
      }
    }
  }
  CloseSocket(fd);
}

}  // namespace qrx::sim
