// `make bench`: whole downloads timed on this machine in one run, as one table.
// The floor is the faster of two minimal clients with the loader's framing
// against qrxvps (socket defaults, and TCP_NODELAY); every qrxbpl row is its wall time less the
// fixed waits the design puts in its run, per fragment, and its ratio to the floor. Not a test: the
// figures depend on the machine and its load, the ratios much less.
//
// Usage: qrx_download_bench BUILD_DIR

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "child_run_posix.h"
#include "floor_client_posix.h"
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
  std::fprintf(stderr,
               "bench: %d rounds of %zu runs; the delayed-ACK row (first round only) "
               "alone takes about 20 s\n",
               kRounds, rows.size());
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
  std::printf(
      "qrxbpl download bench: best of %d runs (the delayed-ACK row: one); "
      "us/fragment = (wall - fixed waits) / fragments; floor = the faster minimal client\n",
      kRounds);
  PrintTable(rows);
  const bool allOk = std::all_of(rows.begin(), rows.end(), [](const Row& r) { return !r.failed; });
  if (!allOk) return 1;
  fs::remove_all(work);
  return 0;
}
