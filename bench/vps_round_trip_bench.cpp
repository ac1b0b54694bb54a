// Round trips per second (items) of one 252-byte Secure Send fragment over TCP
// on loopback against the Virtual Platform Server front: data frame, poll, the
// Command Complete back, exactly as the loader exchanges them. Argument 0 keeps
// Nagle's algorithm on as the loader's client does; 1 turns it off.

#include <benchmark/benchmark.h>

#include <atomic>
#include <thread>
#include <utility>

#include "image/fw_image.h"
#include "model/controller_config.h"
#include "platform/byte_order.h"
#include "support/vps_client_posix.h"
#include "tcp_front.h"

namespace {

using Bytes = std::vector<uint8_t>;
using namespace qrx;

constexpr int kWaitMs = 5000;
// Body fragments accepted before the download is started over, so the
// controller's reassembled body stays small.
constexpr int64_t kFragmentsPerDownload = 4096;

// True when the fragment was accepted.
bool SecureSend(test::VpsClient& client, uint8_t type, std::span<const uint8_t> data) {
  Bytes command = {0x09, 0xFC, static_cast<uint8_t>(data.size() + 1), type};
  command.insert(command.end(), data.begin(), data.end());
  const auto answer = client.SendCommand(command) ? client.Poll(kWaitMs) : std::nullopt;
  return answer && answer->size() == 7 && answer->back() == 0;
}

void BM_SecureSend252(benchmark::State& state) {
  sim::TcpFront front;
  std::string error;
  if (!front.Listen("127.0.0.1", 0, &error)) return state.SkipWithError(error.c_str());
  const sim::SessionSettings settings{
      sim::ConfigForProfile(sim::Profile::kTlvBoot), {}, nullptr, true};
  std::atomic<bool> stop{false};
  std::thread server([&] { front.Serve(settings, stop); });

  Bytes body(252, 0x5A);  // one body command of 249 parameter bytes
  WriteLe16(body, 0, fwimage::kBodyWriteOpcode);
  body[2] = 249;
  // Each download starts with the header, key and signature of an image whose
  // header records a body longer than any run.
  Bytes image = fwimage::BuildSfiImage({.bodyBytes = 4});
  WriteLe32(image, fwimage::kHeaderBodyLengthOffset, 0xFFFFFFFF);
  test::VpsClient client;
  if (!client.Connect(front.Port(), state.range(0) != 0) || !client.Poll(kWaitMs))
    state.SkipWithError("no session with the server");  // the loop then never runs
  for (int64_t inDownload = 0; auto _ : state) {
    if (inDownload++ % kFragmentsPerDownload == 0) {
      state.PauseTiming();  // a reset to the bootloader (answered twice) first
      client.SendCommand(Bytes{0x01, 0xFC, 0x08, 0x01, 0, 0, 0, 0, 0, 0, 0});
      if (client.Poll(kWaitMs)) client.Poll(kWaitMs);
      size_t at = 0;  // a failed start shows as a refused body fragment
      for (const auto& [type, size] :
           {std::pair<uint8_t, size_t>{0, 128}, {3, 252}, {3, 4}, {2, 252}, {2, 4}})
        SecureSend(client, type, std::span(image).subspan(std::exchange(at, at + size), size));
      state.ResumeTiming();
    }
    if (!SecureSend(client, 1, body)) {
      state.SkipWithError("fragment not accepted");
      break;
    }
  }
  state.SetItemsProcessed(state.iterations());
  client.Close();
  stop = true;
  server.join();
}

BENCHMARK(BM_SecureSend252)->Arg(0)->Arg(1)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
