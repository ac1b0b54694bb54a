// The UART receive path from the device up: the real serial connection and
// HCI transport over a fake device, read through the run's event reads (with
// the trace hex dump on) until the controller's stream runs dry.
//
// Input: one byte, the piece size the device hands over per read (0: all at
// once), then the controller's bytes.
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "event_reads.h"
#include "fake_world.h"
#include "hci/btzel_transport.h"
#include "hci/hci_exchange.h"
#include "platform/console.h"
#include "platform/trace.h"
#include "run/run_options.h"

namespace {
constexpr int32_t kUartInterface = 2;
constexpr int32_t kComPort = 1;
}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  qrx::fuzz::TraceIntoNothing();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const qrx::ConsoleCapture console;  // the console text is kept in memory, unread
  if (size < 1) return 0;
  qrx::fuzz::ResetFakeWorld();
  qrx::fuzz::FakePeer& device = qrx::fuzz::SerialPeer();
  qrx::fuzz::QueueStream(device, std::span<const uint8_t>(data + 1, size - 1), data[0]);
  qrx::g_runOptions = qrx::RunOptions{};
  qrx::g_runOptions.interface = kUartInterface;
  qrx::BTZELTransport transport(kUartInterface);
  qrx::SetActiveTransport(&transport);
  if (transport.Open(kComPort) == 0) {
    qrx::fuzz::ReadEventsBothWays(device);
    transport.Close();
  }
  qrx::SetActiveTransport(nullptr);
  return 0;
}
