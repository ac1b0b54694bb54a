// The run's event reads over either link, fed the far end's stream: over the
// UART the real serial connection and HCI transport on a fake device, over
// TCP the client's message prefixes; headers and lengths cut and joined any
// way, read (with the trace hex dump on) until the stream runs dry.
//
// Input: one byte, its top bit the link (set: TCP) and the rest the piece
// size each read hands over (0: all at once), then the far end's bytes.
#include <array>
#include <cstddef>
#include <cstdint>

#include "fake_world.h"
#include "hci/btzel_transport.h"
#include "hci/hci_exchange.h"
#include "platform/console.h"
#include "run/run_options.h"
#include "trace_into_nothing.h"
#include "transport/tcp_client.h"

namespace {
constexpr int32_t kUartInterface = 2;
constexpr int32_t kTcpInterface = 3;
constexpr int32_t kComPort = 1;
constexpr char kHost[] = "127.0.0.1";
constexpr uint8_t kTcpLinkBit = 0x80;
constexpr int kMostReads = 512;

// Both of the run's reads, in turn: the version read's and the exchange's.
void ReadEventsBothWays(const qrx::fuzz::FakePeer& peer) {
  std::array<uint8_t, qrx::kEventBufferSize> event{};
  for (int read = 0; read < kMostReads && !peer.incoming.empty(); ++read) {
    uint32_t length = 0;
    if (read % 2 == 0) {
      qrx::ReceiveEventDirect(event.data(), &length, qrx::kEventTimeoutMs);
    } else {
      qrx::QRXBPLRecvCommand(event.data(), static_cast<uint32_t>(event.size()), &length,
                             qrx::kEventTimeoutMs);
    }
  }
}
}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  qrx::fuzz::TraceIntoNothing();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const qrx::ConsoleCapture console;  // the console text is kept in memory, unread
  if (size < 1) return 0;
  const bool overTcp = (data[0] & kTcpLinkBit) != 0;
  qrx::fuzz::ResetFakeWorld();
  qrx::fuzz::FakePeer& peer = overTcp ? qrx::fuzz::ServerPeer() : qrx::fuzz::SerialPeer();
  qrx::fuzz::QueueStream(peer, std::span<const uint8_t>(data + 1, size - 1),
                         data[0] & ~kTcpLinkBit);
  qrx::g_runOptions = qrx::RunOptions{};
  qrx::g_runOptions.interface = overTcp ? kTcpInterface : kUartInterface;
  if (overTcp) {
    qrx::SetServerAddress(kHost, sizeof kHost - 1);
    if (qrx::ConnectToServer(nullptr)) ReadEventsBothWays(peer);
    qrx::CloseServerConnection();
    return 0;
  }
  qrx::BTZELTransport transport(kUartInterface);
  qrx::SetActiveTransport(&transport);
  if (transport.Open(kComPort) == 0) {
    ReadEventsBothWays(peer);
    transport.Close();
  }
  qrx::SetActiveTransport(nullptr);
  return 0;
}
