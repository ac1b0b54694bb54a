// Round trips per second of one 252-byte Secure Send fragment over TCP on
// loopback against the Virtual Platform Server front: data frame, poll, the
// Command Complete back, exactly as the loader exchanges them.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <string>
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
  Bytes command(4 + data.size(), 0);
  command[0] = 0x09;
  command[1] = 0xFC;
  command[2] = static_cast<uint8_t>(data.size() + 1);
  command[3] = type;
  std::copy(data.begin(), data.end(), command.begin() + 4);
  return command;
}

// The signed prefix of an image whose header records a body longer than any
// run, then one 252-byte body fragment (a single command of 249 parameters).
struct Script {
  std::vector<Bytes> prefix;
  Bytes fragment;
};

Script MakeScript() {
  qrx::fwimage::SignedImageSpec spec;
  spec.bodyBytes = 4;
  Bytes image = qrx::fwimage::BuildSfiImage(spec);
  qrx::WriteLe32(image, qrx::fwimage::kHeaderBodyLengthOffset, 0xFFFFFFFF);
  const std::span<const uint8_t> bytes(image);
  Script script;
  script.prefix = {SecureSend(0, bytes.subspan(0, 128)), SecureSend(3, bytes.subspan(128, 252)),
                   SecureSend(3, bytes.subspan(380, 4)), SecureSend(2, bytes.subspan(388, 252)),
                   SecureSend(2, bytes.subspan(640, 4))};
  Bytes body(252, 0x5A);
  qrx::WriteLe16(body, 0, qrx::fwimage::kBodyWriteOpcode);
  body[2] = 249;
  script.fragment = SecureSend(1, body);
  return script;
}

bool Exchange(VpsClient& client, const Bytes& command) {
  return client.SendCommand(command) && client.Poll(kWaitMs).has_value();
}

bool StartDownload(VpsClient& client, const Script& script) {
  if (!Exchange(client, {0x01, 0xFC, 0x08, 0x01, 0, 0, 0, 0, 0, 0, 0})) return false;
  if (!client.Poll(kWaitMs)) return false;  // the ready event after the reset
  for (const Bytes& command : script.prefix) {
    if (!Exchange(client, command)) return false;
  }
  return true;
}

void SecureSendRoundTrip(benchmark::State& state, bool clientNoDelay) {
  qrx::sim::TcpFront front;
  std::string error;
  if (!front.Listen("127.0.0.1", 0, &error)) {
    state.SkipWithError(error.c_str());
    return;
  }
  qrx::sim::SessionSettings settings{
      qrx::sim::ConfigForProfile(qrx::sim::Profile::kTlvBoot), {}, nullptr, true};
  std::atomic<bool> stop{false};
  std::thread server([&] { front.Serve(settings, stop); });

  const Script script = MakeScript();
  VpsClient client;
  const bool ready = client.Connect(front.Port(), clientNoDelay) && client.Poll(kWaitMs) &&
                     StartDownload(client, script);
  int64_t inDownload = 0;
  for (auto _ : state) {
    if (!ready) {
      state.SkipWithError("no session with the server");
      break;
    }
    if (++inDownload == kFragmentsPerDownload) {
      state.PauseTiming();
      StartDownload(client, script);
      inDownload = 0;
      state.ResumeTiming();
    }
    if (!Exchange(client, script.fragment)) {
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

void BM_SecureSend252_LoaderLikeClient(benchmark::State& state) {
  SecureSendRoundTrip(state, false);
}
void BM_SecureSend252_NoDelayClient(benchmark::State& state) {
  SecureSendRoundTrip(state, true);
}

BENCHMARK(BM_SecureSend252_LoaderLikeClient)->UseRealTime();
BENCHMARK(BM_SecureSend252_NoDelayClient)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
