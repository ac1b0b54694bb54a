// `make bench`: whole downloads timed on this machine in one run, as one table.
// The floor is the faster of two minimal clients with the loader's framing
// against qrxvps (socket defaults, and TCP_NODELAY); every qrxbpl row is its wall time less the
// fixed waits the design puts in its run, per fragment, and its ratio to the floor. Not a test: the
// figures depend on the machine and its load, the ratios much less.
//
// Usage: qrx_download_bench BUILD_DIR

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "child_run_posix.h"
#include "floor_client_posix.h"
#include "pty_floor_client_posix.h"
#include "fwlib/fragment_iterators.h"
#include "fwlib/fwlib_context.h"
#include "image/fw_image.h"
#include "model/controller_config.h"
#include "model/version_answer.h"
#include "support/child_process_posix.h"

namespace {

using namespace qrx;
using Bytes = std::vector<uint8_t>;
namespace fs = std::filesystem;

// Each row is run this often and its best run kept: on a shared machine the
// best run is the one least disturbed by others.
constexpr int kRounds = 7;
constexpr uint32_t kSignedCapacity = 258;
constexpr uint8_t kSignedKind = 1;
constexpr int kSimulatorEndMs = 5000;
constexpr const char* kNoDelay = "--tcp-nodelay";

// The sleeps of the design a run goes through, in ms: after Read Version and
// after the final reset on every run; the rate switch and its RTS settle over
// the UART when -r asks for a switch; after the DDC CCE block with -nocc.
constexpr int64_t kWaitsEveryRun = 100 + 200;
constexpr int64_t kWaitsRateSwitch = 300 + 50;
constexpr int64_t kWaitsNoCommandComplete = 100;

// The paced pseudo-terminal: rows timed against the wire.
constexpr uint32_t kPowerOnRate = 115200;
constexpr size_t kParallelLoaders = 8;
// A row whose floor is longer than this runs once; the rest kPacedRounds times.
constexpr int64_t kLongRowMs = 8000;
constexpr int kPacedRounds = 3;
// The slowest rows (1 MiB at 115200 bit/s: about 95 s each) only when asked.
constexpr const char* kSlowRowsVariable = "QRX_BENCH_SLOW";
constexpr const char* kPacedOnlyVariable = "QRX_BENCH_PACED_ONLY";

struct Image {
  std::string label;
  fs::path drive;
  size_t fileBytes = 0;
  std::vector<Bytes> fragments;
};

struct Row {
  std::string name;
  const Image* image = nullptr;
  int64_t fixedWaitsMs = 0;
  std::vector<std::string> simArgs;     // empty: a minimal-client row
  std::vector<std::string> loaderArgs;  // "@" stands for the port or the pty
  int64_t wallNs = 0;                   // best run
  int64_t peakRssKiB = 0;               // largest
  bool ok = false;                      // a run succeeded
  bool failed = false;                  // a run failed
};

int64_t MonotonicNs() {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(
             std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

struct PacedRow {
  std::string name;
  const Image* image = nullptr;
  uint32_t rate = kPowerOnRate;
  bool noCommandComplete = false;
  uint32_t latencyMs = 0;
  size_t loaders = 1;
  int64_t wallNs = 0;  // best run; with several loaders, from the first start to the last end
  int64_t wireNs = 0;  // what the line carried in that run (the longest of the lines)
  int64_t cpuNs = 0;   // the loaders' CPU time in that run, averaged over them
  bool ok = false;
  bool failed = false;
  bool minimalClient = false;  // the line's own floor: timed over its fragments only

  // The design's sleeps in such a run, in ms.
  int64_t FixedWaitsMs() const {
    if (minimalClient) return 0;
    return kWaitsEveryRun + (rate != kPowerOnRate ? kWaitsRateSwitch : 0) +
           (noCommandComplete ? kWaitsNoCommandComplete : 0);
  }
  int64_t FloorNs() const { return wireNs + FixedWaitsMs() * 1000000; }
};

// The commands a download of the image sends, cut by the loader's own code.
std::vector<Bytes> Fragments(const Bytes& image, const Bytes& answer) {
  FwLibContext context{};
  context.magic = kFwLibContextMagic;
  Bytes version = answer;
  context.versionData = version.data();
  context.versionLength = static_cast<uint8_t>(version.size());
  context.isTlvForm = 1;
  context.imageBorrowed = 1;
  context.imageSize = static_cast<uint32_t>(image.size());
  context.imageData = image.data();
  std::vector<Bytes> commands;
  std::array<uint8_t, kSignedCapacity> command{};
  for (;;) {
    uint32_t length = kSignedCapacity;
    if (GetNextCommand(&context, command.data(), &length) != kFwLibSuccess) return commands;
    commands.emplace_back(command.begin(), command.begin() + length);
  }
}

Image MakeImage(const fs::path& root, const std::string& label, uint32_t bodyBytes,
                const Bytes& answer) {
  Image made;
  made.label = label;
  made.drive = root / label;
  const Bytes image = fwimage::BuildTwoBlockImage({.bodyBytes = bodyBytes}, false);
  std::vector<fwimage::FwdatEntrySpec> entries(1);
  entries[0].kindByte = kSignedKind;
  entries[0].matchKey = fwimage::MatchKey(sim::ImageKeyOf(answer));
  entries[0].image = image;
  const Bytes container = fwimage::BuildFwdat(entries);
  const fs::path folder = made.drive / "Program Files/Norix/Bluetooth";
  fs::create_directories(folder);
  std::ofstream(folder / "qrxfw.dat", std::ios::binary)
      .write(reinterpret_cast<const char*>(container.data()),
             static_cast<std::streamsize>(container.size()));
  made.fileBytes = container.size();
  made.fragments = Fragments(image, answer);
  return made;
}

class Bench {
 public:
  Bench(fs::path build, fs::path work) : build_(std::move(build)), work_(std::move(work)) {}

  // One download: the simulator started for one session, then qrxbpl with
  // the row's arguments and the image's drive.
  void Run(Row& row) {
    test::ChildProcess sim;
    std::vector<std::string> args = {"--once", "--profile", "tlv-boot"};
    args.insert(args.end(), row.simArgs.begin(), row.simArgs.end());
    const std::string line = FirstLine(sim, args);
    const std::string where = line.substr(line.find_last_of(" :") + 1);
    std::vector<std::string> loader = {Program("src/qrxbpl")};
    for (const std::string& arg : row.loaderArgs) loader.push_back(arg == "@" ? where : arg);
    const bench::TimedRun run =
        bench::RunTimed(loader, {{"QRXBPL_DRIVE_C", row.image->drive.string()}},
                        (work_ / "loader.out").string(), (work_ / "loader.err").string());
    sim.WaitExit(kSimulatorEndMs);
    Keep(row, run.exitStatus == 0, run.wallNs);
    row.peakRssKiB = std::max(row.peakRssKiB, run.peakRssKiB);
  }

  // One paced run: a simulator on its own paced line per loader, the loaders
  // started together.
  void RunPaced(PacedRow& row) {
    if (row.minimalClient) return RunPacedFloor(row);
    std::vector<std::unique_ptr<test::ChildProcess>> sims;
    std::vector<std::vector<std::string>> loaders;
    for (size_t i = 0; i < row.loaders; ++i) {
      sims.push_back(std::make_unique<test::ChildProcess>());
      const std::string line =
          FirstLine(*sims.back(), {"--once", "--profile", "tlv-boot", "--pty", "--paced",
                                   "--latency", std::to_string(row.latencyMs)});
      std::vector<std::string> loader = {Program("src/qrxbpl"),
                                         "-i",
                                         "2",
                                         "-h",
                                         "2",
                                         "-p",
                                         line.substr(line.find_last_of(' ') + 1)};
      if (row.rate != kPowerOnRate) loader.insert(loader.end(), {"-r", std::to_string(row.rate)});
      if (row.noCommandComplete) loader.push_back("-nocc");
      loaders.push_back(loader);
    }
    const bench::Environment env = {{"QRXBPL_DRIVE_C", row.image->drive.string()}};
    const int64_t start = MonotonicNs();
    std::vector<bench::TimedChild> children;
    for (size_t i = 0; i < row.loaders; ++i) {
      const std::string tag = std::to_string(i);
      children.push_back(bench::StartTimed(loaders[i], env, (work_ / ("loader" + tag + ".out")),
                                           (work_ / ("loader" + tag + ".err"))));
    }
    bool ok = true;
    int64_t cpuNs = 0;
    for (size_t i = 0; i < children.size(); ++i) {
      const bench::TimedRun run = bench::FinishTimed(children[i]);
      cpuNs += run.cpuNs;
      if (run.exitStatus == 0) continue;
      ok = false;
      std::fprintf(stderr, "bench: loader %zu ended with status %d\n", i, run.exitStatus);
      std::error_code ignored;
      fs::copy_file(work_ / ("loader" + std::to_string(i) + ".err"), work_ / "failed.err",
                    fs::copy_options::overwrite_existing, ignored);
    }
    const int64_t wallNs = MonotonicNs() - start;
    int64_t wireNs = 0;
    for (auto& sim : sims) {
      const std::string rest = sim->ReadAll(kSimulatorEndMs);
      const size_t at = rest.find("qrxvps: wire ");
      long long ns = 0;
      if (at == std::string::npos ||
          std::sscanf(rest.c_str() + at, "qrxvps: wire %lld", &ns) != 1) {
        std::fprintf(stderr, "bench: the simulator did not say what crossed the wire: \"%s\"\n",
                     rest.c_str());
        ok = false;
      }
      wireNs = std::max<int64_t>(wireNs, ns);
      sim->WaitExit(kSimulatorEndMs);
    }
    if (!ok) {
      std::fprintf(stderr, "bench: a run of \"%s\" (%s) failed; see %s\n", row.name.c_str(),
                   row.image->label.c_str(), (work_ / "failed.err").c_str());
      row.failed = true;
      return;
    }
    if (row.ok && wallNs >= row.wallNs) return;
    row.ok = true;
    row.wallNs = wallNs;
    row.wireNs = wireNs;
    row.cpuNs = cpuNs / static_cast<int64_t>(row.loaders);
  }

  // The paced line's floor: the minimal host on its own paced line.
  void RunPacedFloor(PacedRow& row) {
    test::ChildProcess sim;
    const std::string line = FirstLine(sim, {"--once", "--profile", "tlv-boot", "--pty", "--paced",
                                             "--latency", std::to_string(row.latencyMs)});
    const bench::PtyFloorResult floor = bench::RunPtyFloorClient(
        line.substr(line.find_last_of(' ') + 1), row.rate, row.image->fragments);
    sim.WaitExit(kSimulatorEndMs);
    if (!floor.ok) {
      std::fprintf(stderr, "bench: a run of \"%s\" (%s) failed\n", row.name.c_str(),
                   row.image->label.c_str());
      row.failed = true;
      return;
    }
    if (row.ok && floor.fragmentNs >= row.wallNs) return;
    row.ok = true;
    row.wallNs = floor.fragmentNs;
    row.wireNs = floor.fragmentWireNs;
  }

  // The floor: the same server, the minimal client with the loader's socket
  // settings (none), or with TCP_NODELAY when its arguments ask for it;
  // only its fragments are timed.
  void RunFloor(Row& row) {
    test::ChildProcess sim;
    const std::string line = FirstLine(sim, {"--tcp", "--port", "0", "--once"});
    const auto port = static_cast<uint16_t>(std::stoul("0" + line.substr(line.rfind(':') + 1)));
    const bench::FloorResult floor = bench::RunFloorClient(
        port, row.image->fragments, !row.loaderArgs.empty() && row.loaderArgs[0] == kNoDelay);
    sim.WaitExit(kSimulatorEndMs);
    Keep(row, floor.ok, floor.fragmentNs);
  }

 private:
  // Starts the simulator; its first line tells where it listens.
  std::string FirstLine(test::ChildProcess& sim, const std::vector<std::string>& args) const {
    return sim.Start(Program("sim/qrxvps"), args) ? sim.ReadLine(10000).value_or("") : "";
  }

  void Keep(Row& row, bool ok, int64_t wallNs) {
    if (!ok) {
      // Its console is kept for a look; the folder stays when anything failed.
      std::error_code ignored;
      fs::copy_file(work_ / "loader.err", work_ / "failed.err",
                    fs::copy_options::overwrite_existing, ignored);
      std::fprintf(stderr, "bench: a run of \"%s\" (%s) failed; see %s\n", row.name.c_str(),
                   row.image->label.c_str(), (work_ / "failed.err").c_str());
      row.failed = true;
      return;
    }
    if (!row.ok || wallNs < row.wallNs) row.wallNs = wallNs;
    row.ok = true;
  }

  std::string Program(const std::string& relative) const { return (build_ / relative).string(); }
  fs::path build_;
  fs::path work_;
};

double MicrosPerFragment(const Row& row) {
  const double ns = static_cast<double>(row.wallNs) - static_cast<double>(row.fixedWaitsMs) * 1e6;
  return ns / 1e3 / static_cast<double>(row.image->fragments.size());
}

// The floor is the faster of the two minimal clients (the first two rows): with
// Nagle's algorithm on, how soon the poll may follow the frame depends on when
// the server's ACK comes back, which varies with the load.
void PrintTable(const std::vector<Row>& rows) {
  const double floor = std::min(MicrosPerFragment(rows[0]), MicrosPerFragment(rows[1]));
  std::printf(
      "| run | image | fragments | wall ms | fixed waits ms | us/fragment | x floor | peak RSS "
      "KiB | image KiB |\n|---|---|---:|---:|---:|---:|---:|---:|---:|\n");
  for (const Row& row : rows) {
    const double image = static_cast<double>(row.image->fileBytes) / 1024.0;
    if (!row.ok) {
      std::printf("| %s | %s | %zu | failed | | | | | %.0f |\n", row.name.c_str(),
                  row.image->label.c_str(), row.image->fragments.size(), image);
      continue;
    }
    const double perFragment = MicrosPerFragment(row);
    std::printf("| %s | %s | %zu | %.0f | %lld | %.1f | %.2f | %s | %.0f |\n", row.name.c_str(),
                row.image->label.c_str(), row.image->fragments.size(),
                static_cast<double>(row.wallNs) / 1e6, static_cast<long long>(row.fixedWaitsMs),
                perFragment, perFragment / floor,
                row.peakRssKiB > 0 ? std::to_string(row.peakRssKiB).c_str() : "-", image);
  }
}

void PrintPacedTable(const std::vector<PacedRow>& rows) {
  std::printf(
      "\n| run (paced pty) | image | bit/s | wall ms | wire ms | fixed waits ms | floor ms | x "
      "floor | added us/fragment | loader CPU us/fragment |\n"
      "|---|---|---:|---:|---:|---:|---:|---:|---:|---:|\n");
  for (const PacedRow& row : rows) {
    if (!row.ok) {
      std::printf("| %s | %s | %u | %s | | | | | | |\n", row.name.c_str(),
                  row.image->label.c_str(), row.rate, row.failed ? "failed" : "skipped");
      continue;
    }
    const auto fragments = static_cast<double>(row.image->fragments.size());
    char cpu[32] = "-";  // the minimal host's CPU is not measured
    if (!row.minimalClient) {
      std::snprintf(cpu, sizeof cpu, "%.1f", static_cast<double>(row.cpuNs) / 1e3 / fragments);
    }
    std::printf(
        "| %s | %s | %u | %.0f | %.0f | %lld | %.0f | %.3f | %.1f | %s |\n", row.name.c_str(),
        row.image->label.c_str(), row.rate, static_cast<double>(row.wallNs) / 1e6,
        static_cast<double>(row.wireNs) / 1e6, static_cast<long long>(row.FixedWaitsMs()),
        static_cast<double>(row.FloorNs()) / 1e6,
        static_cast<double>(row.wallNs) / static_cast<double>(row.FloorNs()),
        static_cast<double>(row.wallNs - row.FloorNs()) / 1e3 / fragments, cpu);
  }
}

// The goals, each against the row that measures it.
void PrintGoals(const std::vector<PacedRow>& rows) {
  auto find = [&](const std::string& name, const std::string& image) -> const PacedRow* {
    for (const PacedRow& row : rows) {
      if (row.name == name && row.image->label == image && row.ok) return &row;
    }
    return nullptr;
  };
  auto ratio = [](const PacedRow& row) {
    return static_cast<double>(row.wallNs) / static_cast<double>(row.FloorNs());
  };
  const struct {
    const char* what;
    const char* row;
    const char* image;
    double goal;
  } goals[] = {
      {"3000000 bit/s, 1 MiB, Command Complete: x floor", "-r 3000000", "1 MiB", 1.05},
      {"3000000 bit/s, 1 MiB, -nocc: x floor", "-r 3000000 -nocc", "1 MiB", 1.02},
      {"115200 bit/s, 256 KiB, Command Complete: x floor", "115200", "256 KiB", 1.01},
      {"115200 bit/s, 256 KiB, -nocc: x floor", "115200 -nocc", "256 KiB", 1.01},
      {"115200 bit/s, 1 MiB, Command Complete: x floor", "115200", "1 MiB", 1.01},
      {"115200 bit/s, 1 MiB, -nocc: x floor", "115200 -nocc", "1 MiB", 1.01},
  };
  std::printf("\nGoals:\n");
  for (const auto& g : goals) {
    const PacedRow* row = find(g.row, g.image);
    if (row == nullptr) {
      std::printf("- %s <= %.2f: not run\n", g.what, g.goal);
      continue;
    }
    const double r = ratio(*row);
    std::printf("- %s <= %.2f: %.3f, %s\n", g.what, g.goal, r, r <= g.goal ? "met" : "missed");
  }
  const PacedRow* alone = find("-r 3000000", "1 MiB");
  const PacedRow* tray = find("8 in parallel, -r 3000000", "1 MiB");
  if (alone != nullptr && tray != nullptr) {
    const double r = static_cast<double>(tray->wallNs) / static_cast<double>(alone->wallNs);
    std::printf(
        "- 8 loaders in parallel, wall x one alone <= 1.20: %.3f, %s; loader CPU "
        "per fragment %.1f us in parallel, %.1f us alone\n",
        r, r <= 1.2 ? "met" : "missed",
        static_cast<double>(tray->cpuNs) / 1e3 / static_cast<double>(tray->image->fragments.size()),
        static_cast<double>(alone->cpuNs) / 1e3 /
            static_cast<double>(alone->image->fragments.size()));
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 1 && std::string(argv[1]) == bench::kTimedRunFlag)
    return bench::TimedRunMain(argc, argv);
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s BUILD_DIR\n", argv[0]);
    return 2;
  }
  const fs::path work = bench::MakeWorkFolder();
  if (work.empty()) return 1;
  const Bytes answer =
      sim::BuildVersionAnswer(sim::ConfigForProfile(sim::Profile::kTlvBoot), true, 0);
  const Image small = MakeImage(work, "64 KiB", 64 * 1024, answer);
  const Image quarter = MakeImage(work, "256 KiB", 256 * 1024, answer);
  const Image medium = MakeImage(work, "1 MiB", 1024 * 1024, answer);
  const Image large = MakeImage(work, "4 MiB", 4 * 1024 * 1024, answer);

  auto with = [](std::vector<std::string> args, const std::vector<std::string>& more) {
    args.insert(args.end(), more.begin(), more.end());
    return args;
  };
  const std::vector<std::string> tcp = {"-i", "3", "-a", "127.0.0.1", "-p", "@"};
  const std::vector<std::string> pty = {"-i", "2", "-h", "2", "-p", "@", "-r", "3000000"};
  const std::vector<std::string> tcpSim = {"--tcp", "--port", "0"};
  const std::vector<std::string> slowSim = with(tcpSim, {"--delayed-ack"});
  const int64_t uartWaits = kWaitsEveryRun + kWaitsRateSwitch;

  std::vector<Row> rows = {
      {"minimal client, TCP, qrxvps", &medium, 0, {}, {}},
      {"minimal client, TCP_NODELAY, qrxvps", &medium, 0, {}, {kNoDelay}},
      {"qrxbpl TCP, qrxvps", &small, kWaitsEveryRun, tcpSim, tcp},
      {"qrxbpl TCP, qrxvps", &medium, kWaitsEveryRun, tcpSim, tcp},
      {"qrxbpl TCP, qrxvps", &large, kWaitsEveryRun, tcpSim, tcp},
      {"qrxbpl TCP, qrxvps --delayed-ack", &small, kWaitsEveryRun, slowSim, tcp},
      {"qrxbpl TCP --tcp-nodelay, qrxvps --delayed-ack", &medium, kWaitsEveryRun, slowSim,
       with(tcp, {kNoDelay})},
      {"qrxbpl pty -r 3000000", &medium, uartWaits, {"--pty"}, pty},
      {"qrxbpl pty -r 3000000 -nocc",
       &medium,
       uartWaits + kWaitsNoCommandComplete,
       {"--pty"},
       with(pty, {"-nocc"})},
  };
  constexpr size_t kStalledRow = 5;
  Bench bench(argv[1], work);
  // Only the paced table, for a quicker look at the wire.
  const bool pacedOnly = std::getenv(kPacedOnlyVariable) != nullptr;
  if (pacedOnly) rows.clear();
  if (!pacedOnly) {
    std::fprintf(stderr,
                 "bench: %d rounds of %zu runs; the delayed-ACK row (first round only) "
                 "alone takes about 20 s\n",
                 kRounds, rows.size());
  }
  // Round after round of every row, so that each row meets the same spread of
  // machine load; each keeps its best run.
  for (int round = 0; round < kRounds; ++round) {
    for (size_t i = 0; i < rows.size(); ++i) {
      if (i == kStalledRow && round > 0) continue;
      if (rows[i].simArgs.empty()) {
        bench.RunFloor(rows[i]);
      } else {
        bench.Run(rows[i]);
      }
    }
  }
  // The paced rows: each rate with and without Command Complete, the line's
  // latency, and a tray of loaders side by side.
  const bool slowRows = std::getenv(kSlowRowsVariable) != nullptr;
  std::vector<PacedRow> paced;
  for (const uint32_t rate : {3000000u, 921600u, kPowerOnRate}) {
    for (const Image* image : {&quarter, &medium}) {
      if (rate == kPowerOnRate && image == &medium && !slowRows) continue;
      for (const bool noCc : {false, true}) {
        const std::string name =
            (rate == kPowerOnRate ? std::string("115200") : "-r " + std::to_string(rate)) +
            (noCc ? " -nocc" : "");
        paced.push_back({name, image, rate, noCc});
      }
    }
  }
  // The line's own floor at each rate: the minimal host, Command Complete awaited.
  for (const uint32_t rate : {3000000u, kPowerOnRate}) {
    PacedRow floor{"minimal host " + std::to_string(rate), &quarter, rate};
    floor.minimalClient = true;
    paced.push_back(floor);
  }
  for (const uint32_t latency : {1u, 16u}) {
    for (const bool noCc : {false, true}) {
      const std::string name = "-r 3000000" + std::string(noCc ? " -nocc" : "") + ", --latency " +
                               std::to_string(latency);
      paced.push_back({name, &quarter, 3000000, noCc, latency});
    }
  }
  paced.push_back({"8 in parallel, -r 3000000", &medium, 3000000, false, 0, kParallelLoaders});
  std::fprintf(stderr,
               "bench: %zu paced rows (%s=1 adds the 1 MiB rows at 115200 bit/s, ~95 s each)\n",
               paced.size(), kSlowRowsVariable);
  for (int round = 0; round < kPacedRounds; ++round) {
    for (PacedRow& row : paced) {
      // A long row's first run tells; only the short ones are run again.
      if (round > 0 && (!row.ok || row.FloorNs() > kLongRowMs * 1000000)) continue;
      bench.RunPaced(row);
    }
  }

  if (!pacedOnly) {
    std::printf(
        "qrxbpl download bench: best of %d runs (the delayed-ACK row: one); "
        "us/fragment = (wall - fixed waits) / fragments; floor = the faster minimal client\n",
        kRounds);
    PrintTable(rows);
  }
  std::printf(
      "\nOver the paced pty (qrxvps --pty --paced): best of %d runs (rows whose floor is over "
      "%lld s: one); floor = wire time both ways (10 bit times a byte at the rate of the moment, "
      "from the simulator) + the design's fixed waits\n",
      kPacedRounds, static_cast<long long>(kLongRowMs / 1000));
  PrintPacedTable(paced);
  PrintGoals(paced);
  const bool allOk =
      std::all_of(rows.begin(), rows.end(), [](const Row& r) { return !r.failed; }) &&
      std::none_of(paced.begin(), paced.end(), [](const PacedRow& r) { return r.failed; });
  if (!allOk) return 1;
  fs::remove_all(work);
  return 0;
}
