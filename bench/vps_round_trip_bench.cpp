// Round trips per second of one 252-byte Secure Send fragment over TCP on
// loopback against the Virtual Platform Server front: data frame, poll, the
// Command Complete back, exactly as the loader exchanges them. Argument 0 keeps
// Nagle's algorithm on as the loader's client does; 1 turns it off.

#include <benchmark/benchmark.h>

#include <atomic>
#include <thread>

#include "image/fw_image.h"
#include "model/controller_config.h"
#include "platform/byte_order.h"
#include "support/vps_client_posix.h"
#include "tcp_front.h"

namespace {

using Bytes = std::vector<uint8_t>;
using qrx::test::VpsClient;

constexpr int kWaitMs = 5000;
// Body fragments accepted before the download is started over, so the
// controller's reassembled body stays small.
constexpr int64_t kFragmentsPerDownload = 4096;

Bytes SecureSend(uint8_t type, std::span<const uint8_t> data) {
  Bytes command(data.begin(), data.end());
  command.insert(command.begin(), {0x09, 0xFC, static_cast<uint8_t>(data.size() + 1), type});
  return command;
}

bool Exchange(VpsClient& client, const Bytes& command) {
  return client.SendCommand(command) && client.Poll(kWaitMs).has_value();
}

// A reset to the bootloader (answered twice), then the signed prefix of an
// image whose header records a body longer than any run.
bool StartDownload(VpsClient& client) {
  Bytes image = qrx::fwimage::BuildSfiImage({.bodyBytes = 4});
  qrx::WriteLe32(image, qrx::fwimage::kHeaderBodyLengthOffset, 0xFFFFFFFF);
  bool ok = Exchange(client, {0x01, 0xFC, 0x08, 0x01, 0, 0, 0, 0, 0, 0, 0}) && client.Poll(kWaitMs);
  constexpr struct {
    uint8_t type;
    size_t at, size;
  } kPrefix[] = {{0, 0, 128}, {3, 128, 252}, {3, 380, 4}, {2, 388, 252}, {2, 640, 4}};
  for (const auto& piece : kPrefix) {
    ok = ok &&
         Exchange(client, SecureSend(piece.type, std::span(image).subspan(piece.at, piece.size)));
  }
  return ok;
}

void BM_SecureSend252(benchmark::State& state) {
  qrx::sim::TcpFront front;
  std::string error;
  if (!front.Listen("127.0.0.1", 0, &error)) return state.SkipWithError(error.c_str());
  const qrx::sim::SessionSettings settings{
      qrx::sim::ConfigForProfile(qrx::sim::Profile::kTlvBoot), {}, nullptr, true};
  std::atomic<bool> stop{false};
  std::thread server([&] { front.Serve(settings, stop); });

  Bytes fragment(252, 0x5A);  // one body command of 249 parameter bytes
  qrx::WriteLe16(fragment, 0, qrx::fwimage::kBodyWriteOpcode);
  fragment[2] = 249;
  fragment = SecureSend(1, fragment);
  VpsClient client;
  const bool ready = client.Connect(front.Port(), state.range(0) != 0) && client.Poll(kWaitMs) &&
                     StartDownload(client);
  if (!ready) state.SkipWithError("no session with the server");  // the loop then never runs
  int64_t inDownload = 0;
  for (auto _ : state) {
    if (++inDownload == kFragmentsPerDownload) {
      state.PauseTiming();
      StartDownload(client);
      inDownload = 0;
      state.ResumeTiming();
    }
    if (!Exchange(client, fragment)) {
      state.SkipWithError("round trip failed");
      break;
    }
  }
  state.counters["round_trips_per_s"] =
      benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
  client.Close();
  stop = true;
  server.join();
}

BENCHMARK(BM_SecureSend252)->Arg(0)->Arg(1)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
