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

#include "fake_world.h"
#include "hci/btzel_transport.h"
#include "hci/hci_exchange.h"
#include "platform/console.h"
#include "platform/trace.h"
#include "run/run_options.h"

namespace {
constexpr int32_t kUartInterface = 2;
constexpr int32_t kComPort = 1;
constexpr int kMostReads = 512;
}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  // Traced, so every received packet is also hex-dumped.
  setenv("QRXBPL_TRACE_FILE", "/dev/null", 1);
  qrx::TraceProviderRegister();
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
    std::array<uint8_t, qrx::kEventBufferSize> event{};
    for (int read = 0; read < kMostReads && !device.incoming.empty(); ++read) {
      uint32_t length = 0;
      // Both of the run's reads: the version read's and the exchange's.
      if (read % 2 == 0) {
        qrx::ReceiveEventDirect(event.data(), &length, qrx::kEventTimeoutMs);
      } else {
        qrx::QRXBPLRecvCommand(event.data(), static_cast<uint32_t>(event.size()), &length,
                               qrx::kEventTimeoutMs);
      }
    }
    transport.Close();
  }
  qrx::SetActiveTransport(nullptr);
  return 0;
}
