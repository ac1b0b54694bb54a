// The TCP client's event read fed a server's stream: message prefixes, packet
// headers and lengths cut and joined any way, until the server closes.
//
// Input: one byte, the piece size each receive hands over (0: all at once),
// then the server's bytes.
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "event_reads.h"
#include "fake_world.h"
#include "hci/hci_exchange.h"
#include "platform/console.h"
#include "platform/trace.h"
#include "run/run_options.h"
#include "transport/tcp_client.h"

namespace {
constexpr int32_t kTcpInterface = 3;
constexpr char kHost[] = "127.0.0.1";
}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  qrx::fuzz::TraceIntoNothing();
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
    qrx::fuzz::ReadEventsBothWays(server);
  }
  qrx::CloseServerConnection();
  return 0;
}
