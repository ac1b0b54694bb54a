// The TCP client's event read fed a server's stream: message prefixes, packet
// headers and lengths cut and joined any way, until the server closes.
//
// Input: one byte, the piece size each receive hands over (0: all at once),
// then the server's bytes.
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "fake_world.h"
#include "hci/hci_exchange.h"
#include "platform/console.h"
#include "platform/trace.h"
#include "run/run_options.h"
#include "transport/tcp_client.h"

namespace {
constexpr int32_t kTcpInterface = 3;
constexpr int kMostReads = 512;
constexpr char kHost[] = "127.0.0.1";
}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  setenv("QRXBPL_TRACE_FILE", "/dev/null", 1);
  qrx::TraceProviderRegister();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const qrx::ConsoleCapture console;  // the console text is kept in memory, unread
  if (size < 1) return 0;
  qrx::fuzz::ResetFakeWorld();
  qrx::fuzz::FakePeer& server = qrx::fuzz::ServerPeer();
  qrx::fuzz::QueueStream(server, std::span<const uint8_t>(data + 1, size - 1), data[0]);
  qrx::g_runOptions = qrx::RunOptions{};
  qrx::g_runOptions.interface = kTcpInterface;
  qrx::SetServerAddress(kHost, sizeof kHost - 1);
  if (qrx::ConnectToServer(nullptr)) {
    std::array<uint8_t, qrx::kEventBufferSize> event{};
    for (int read = 0; read < kMostReads && !server.incoming.empty(); ++read) {
      uint32_t length = 0;
      if (read % 2 == 0) {
        qrx::ReceiveEventDirect(event.data(), &length, qrx::kEventTimeoutMs);
      } else {
        qrx::QRXBPLRecvCommand(event.data(), static_cast<uint32_t>(event.size()), &length,
                               qrx::kEventTimeoutMs);
      }
    }
  }
  qrx::CloseServerConnection();
  return 0;
}
