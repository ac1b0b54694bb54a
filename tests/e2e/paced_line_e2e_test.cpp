#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <memory>
#include <sstream>

#include "e2e/e2e_bench.h"

// The simulator's paced line: a download over it prints exactly what it prints
// over the plain pseudo-terminal, takes at least the time its bytes need on
// the wire (plus the loader's own sleeps and the line's latency), and several
// loaders on their own lines all complete side by side.

namespace qrx::test {
namespace {

using fwimage::BuildTwoBlockImage;

const std::vector<std::string>& kSim = kTlvBoot;
constexpr int64_t kNsPerMs = 1'000'000;
constexpr int kExitLimitMs = 60000;
// The loader's sleeps: after Read Version and the final reset; the rate switch.
constexpr int64_t kSleepsMs = 300;
constexpr int64_t kRateSwitchSleepsMs = 350;
// The Secure Send commands of a two-block kSmallImage download: each one's
// answer is awaited when Command Complete is on.
constexpr int64_t kAwaitedSecureSends = 7;

struct Wire {
  int64_t ns = 0;
  uint64_t toController = 0;
  uint64_t toHost = 0;
};

// The simulator's closing lines: the line's rate, then what crossed the wire.
Wire ParseClosing(const std::string& text) {
  long long ns = 0;
  unsigned long long toController = 0, toHost = 0;
  EXPECT_EQ(std::sscanf(text.c_str(),
                        "qrxvps: host closed the line at 115200 bit/s\nqrxvps: wire %lld ns, %llu "
                        "bytes to the controller, %llu bytes to the host",
                        &ns, &toController, &toHost),
            3)
      << text;
  return {ns, toController, toHost};
}

// Every command byte the simulator logged, each command with its H4 type byte.
uint64_t LoggedCommandBytes(const std::vector<std::string>& log) {
  uint64_t bytes = 0;
  for (const std::string& line : log) bytes += (line.size() + 1) / 3 + 1;
  return bytes;
}

TEST(PacedLine, ADownloadPrintsWhatThePlainLinePrintsAndTakesTheWireTime) {
  const struct {
    const char* name;
    uint32_t bodyBytes;
    std::vector<std::string> loader;  // after -i 2 -h 2 -p PTY
    uint32_t latencyMs;
    int64_t sleepsMs;
    int64_t latencyWaitsMs;  // awaited answers x latency both ways
  } cases[] = {
      {"115200", 16384, {}, 0, kSleepsMs, 0},
      // The pause after the last fragment passes while the line still carries
      // the fragments, so only the sleeps before the download add to the wire.
      {"3000000 -nocc", 300, {"-r", "3000000", "-nocc"}, 0, kSleepsMs + kRateSwitchSleepsMs, 0},
      {"3000000 --latency 40",
       300,
       {"-r", "3000000"},
       40,
       kSleepsMs + kRateSwitchSleepsMs,
       kAwaitedSecureSends * 2 * 40},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const std::vector<uint8_t> image =
        BuildTwoBlockImage({.bodyBytes = c.bodyBytes, .seed = 5, .patchNumber = 0}, true);
    auto run = [&](std::vector<std::string> sim, E2eBench& bench) {
      InstallContainer(bench, kSim, image);
      sim.insert(sim.end(), kSim.begin(), kSim.end());
      std::vector<std::string> args = {"-i", "2", "-h", "2", "-p", bench.StartPty(sim)};
      args.insert(args.end(), c.loader.begin(), c.loader.end());
      return bench.RunLoader(args);
    };
    E2eBench plainBench;
    const ProcessResult plain = run({}, plainBench);
    E2eBench bench;
    const auto start = std::chrono::steady_clock::now();
    const ProcessResult paced = run({"--paced", "--latency", std::to_string(c.latencyMs)}, bench);
    const int64_t wallNs = (std::chrono::steady_clock::now() - start).count();
    EXPECT_EQ(paced.exitStatus, 0) << paced.err;
    EXPECT_EQ(MaskTimes(paced.err), MaskTimes(plain.err));
    EXPECT_EQ(paced.out, plain.out);

    const Wire wire = ParseClosing(bench.SimulatorFinalOutput());
    EXPECT_EQ(wire.toController, LoggedCommandBytes(bench.CommandLog()));
    if (c.loader.empty()) {
      // One rate throughout: every byte took its 10 bit times.
      const double expectedNs =
          static_cast<double>(wire.toController + wire.toHost) * 10e9 / 115200;
      EXPECT_NEAR(static_cast<double>(wire.ns), expectedNs, expectedNs * 1e-3);
    }
    EXPECT_GE(wallNs, wire.ns + (c.sleepsMs + c.latencyWaitsMs) * kNsPerMs);
  }
}

// A tray of boards: eight loaders at once, each on its own paced line at
// 3000000 bit/s; each completes and prints what one alone prints.
TEST(PacedLine, EightLoadersInParallelAllComplete) {
  constexpr size_t kLoaders = 8;
  const std::vector<uint8_t> image = BuildTwoBlockImage(kSmallImage, true);
  std::array<std::unique_ptr<E2eBench>, kLoaders> benches;
  std::array<ChildProcess, kLoaders> loaders;
  for (size_t i = 0; i < kLoaders; ++i) {
    benches[i] = std::make_unique<E2eBench>();
    InstallContainer(*benches[i], kSim, image);
    std::vector<std::string> sim = {"--paced"};
    sim.insert(sim.end(), kSim.begin(), kSim.end());
    const std::string pty = benches[i]->StartPty(sim);
    ASSERT_TRUE(
        benches[i]->StartLoader(loaders[i], {"-i", "2", "-h", "2", "-p", pty, "-r", "3000000"}));
  }
  std::string first;
  for (size_t i = 0; i < kLoaders; ++i) {
    SCOPED_TRACE(i);
    EXPECT_EQ(loaders[i].ReadAll(kExitLimitMs), "");
    EXPECT_EQ(loaders[i].WaitExit(kExitLimitMs), 0) << loaders[i].CollectedErr();
    const std::string err = MaskTimes(loaders[i].CollectedErr());
    EXPECT_NE(err.find("Download complete.\n"), std::string::npos) << err;
    if (i == 0) first = err;
    EXPECT_EQ(err, first);
    ParseClosing(benches[i]->SimulatorFinalOutput());
  }
}

}  // namespace
}  // namespace qrx::test
