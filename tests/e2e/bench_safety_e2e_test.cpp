#include <grp.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <regex>
#include <sstream>

#include <nlohmann/json.hpp>

#include "e2e/e2e_bench.h"
#include "support/report_schema.h"
#include "support/unprivileged_user.h"

// What a real bench does to the loader beyond its console: interrupts, a port
// someone else holds, a controller that sends garbage, names that are not what
// they seem.

namespace qrx::test {
namespace {

using fwimage::BuildTwoBlockImage;

const std::vector<std::string>& kSim = kTlvBoot;
// Large enough that a download is still running well after it has begun.
const fwimage::SignedImageSpec kLongImage{.bodyBytes = 200000, .seed = 7, .patchNumber = 0};
// Commands the simulator has seen when the signal goes: Secure Sends under way.
constexpr size_t kCommandsBeforeSignal = 40;
constexpr int kExitLimitMs = 20000;

const std::string kUartStart = kPicked + kUartVersion + "[OK]\n";
const std::string kTcpStart =
    kPicked + kTcpVersion + "[OK]\nInitialization complete.\nDownloading FWDAT file...\n";
const std::string kLineAt115200 = "qrxvps: host closed the line at 115200 bit/s";

struct SignalCase {
  const char* name;
  int signalNumber;
  bool overTcp;
};

// The reader of the console goes away mid-download, as `| head` does: the
// loader goes on to its end and exits as the download went.
ProcessResult RunIntoAReaderThatQuits(const E2eBench& bench, const std::vector<std::string>& args) {
  const std::string status = bench.Drive().Join("status");
  std::vector<std::string> argv = {
      "/bin/sh", "-c", "{ \"$@\" --progress; echo $? >" + status + "; } 2>&1 | head -c 400", "sh",
      BuildProduct("src/qrxbpl")};
  argv.insert(argv.end(), args.begin(), args.end());
  ProcessResult run = RunProcess(argv, {{"QRXBPL_DRIVE_C", bench.Drive().Path()}});
  run.exitStatus = std::atoi(bench.Drive().Read("status").c_str());
  return run;
}

// A signal in the middle of a download: the process ends by that signal and
// prints nothing more; the line is back at 115200 and the port free (not left
// exclusive, so an ordinary user in the device's group opens it next), so the
// next run on the same line downloads. Over TCP the connection is closed and
// the server takes the next run. A broken console pipe ends nothing: the
// download finishes and gives the line back as usual.
TEST(BenchSafety, ATerminatingSignalMidDownloadGivesTheLinkBack) {
  const SignalCase cases[] = {
      {"SIGINT", SIGINT, false},   {"SIGTERM", SIGTERM, false}, {"SIGHUP", SIGHUP, false},
      {"SIGQUIT", SIGQUIT, false}, {"SIGABRT", SIGABRT, false}, {"SIGSEGV", SIGSEGV, false},
      {"SIGPIPE", SIGPIPE, false}, {"SIGINT", SIGINT, true},    {"SIGTERM", SIGTERM, true},
      {"SIGHUP", SIGHUP, true},
  };
  // The signals whose default leaves a core leave none here.
  const rlimit noCore{0, 0};
  ASSERT_EQ(setrlimit(RLIMIT_CORE, &noCore), 0);
  const UnprivilegedUser user("dialout");
  if (!user.Made())
    std::cout << "Not root: the next run goes as this user, who meets an exclusive line too.\n";
  for (const SignalCase& c : cases) {
    SCOPED_TRACE(std::string(c.name) + (c.overTcp ? " over TCP" : " on a pty"));
    E2eBench bench;
    InstallContainer(bench, kSim, BuildTwoBlockImage(kLongImage, true));
    // Over TCP the server delays its ACKs, so each fragment takes tens of
    // milliseconds and the signal surely lands mid-download; the next run asks
    // for TCP_NODELAY and is quick again.
    std::vector<std::string> sim = kSim;
    if (c.overTcp) sim.push_back("--delayed-ack");
    const std::string where = c.overTcp ? bench.StartTcp(sim, false) : bench.StartPty(sim, false);
    const std::vector<std::string> args =
        c.overTcp ? std::vector<std::string>{"-i", "3", "-a", "127.0.0.1", "-p", where}
                  : std::vector<std::string>{"-i", "2", "-h", "2", "-p", where, "-r", "3000000"};

    if (c.signalNumber == SIGPIPE) {
      const ProcessResult piped = RunIntoAReaderThatQuits(bench, args);
      EXPECT_EQ(piped.exitStatus, 0);
      EXPECT_EQ(bench.SimulatorLine(), kLineAt115200);
    } else {
      ChildProcess loader;
      ASSERT_TRUE(bench.StartLoader(loader, args));
      ASSERT_TRUE(bench.WaitForCommands(kCommandsBeforeSignal));
      loader.Signal(c.signalNumber);
      const std::string out = loader.ReadAll(kExitLimitMs);
      EXPECT_EQ(loader.WaitExit(kExitLimitMs), -1);
      EXPECT_EQ(loader.EndingSignal(), c.signalNumber);
      EXPECT_EQ(out, "");  // no closing message: the console just stops
      if (c.overTcp) {
        // A frame line may be cut short by the signal; nothing else follows.
        static const std::regex kFramesSoFar("(Send Packet Size = [0-9]+ \n)*(Send Pack[^\n]*)?");
        const std::string& err = loader.CollectedErr();
        ASSERT_EQ(err.rfind(kTcpStart, 0), 0u) << err;
        EXPECT_TRUE(std::regex_match(err.substr(kTcpStart.size()), kFramesSoFar)) << err;
      } else {
        EXPECT_EQ(loader.CollectedErr(),
                  kUartStart + R"T(CMD: Change Baud Rate (3000000)          [OK]
Setting Local Baud Rate to (3000000)     [OK]
Initialization complete.
Downloading FWDAT file...
)T");
        EXPECT_EQ(bench.SimulatorLine(), kLineAt115200);
      }
    }

    std::vector<std::string> nextArgs = args;
    if (c.overTcp) nextArgs.push_back("--tcp-nodelay");
    ProcessResult next;
    if (c.overTcp || !user.Made()) {
      next = bench.RunLoader(nextArgs);
    } else {
      // A serial adapter's node: the device's group may read and write it.
      ASSERT_EQ(chown(where.c_str(), 0, getgrnam("dialout")->gr_gid), 0);
      ASSERT_EQ(chmod(where.c_str(), 0660), 0);
      ASSERT_EQ(chmod(bench.Drive().Path().c_str(), 0755), 0);
      std::vector<std::string> argv = {BuildProduct("src/qrxbpl")};
      argv.insert(argv.end(), nextArgs.begin(), nextArgs.end());
      next = RunProcess(user.Running(argv), {{"QRXBPL_DRIVE_C", bench.Drive().Path()}});
    }
    EXPECT_EQ(next.exitStatus, 0) << next.err;
    EXPECT_NE(next.err.find("Download complete.\n"), std::string::npos);
    if (!c.overTcp) {
      EXPECT_EQ(bench.SimulatorLine(), kLineAt115200);
    }
  }
}

// Two loaders on one port, as root too: the second is refused at the open with
// the system's text and fails like any port that did not open; the first is
// not disturbed.
TEST(BenchSafety, ASecondLoaderOnAHeldPortIsRefused) {
  E2eBench bench;
  InstallContainer(bench, kSim, BuildTwoBlockImage(kLongImage, true));
  const std::string pty = bench.StartPty(kSim);
  ChildProcess first;
  ASSERT_TRUE(bench.StartLoader(first, {"-i", "2", "-p", pty}));
  ASSERT_TRUE(bench.WaitForCommands(kCommandsBeforeSignal));

  const ProcessResult second = bench.RunLoader({"-i", "2", "-p", pty});
  // Root passes the exclusivity and meets the lock; anyone else meets the exclusivity.
  auto refusedWith = [](int error) {
    return kPicked + std::strerror(error) +
           "\nCMD: Read Norix Version                  ERROR: Bluetooth device port is not "
           "open!\n[FAIL] Send command failed\nThe firmware download cannot proceed because the "
           "controller has become unresponsive. Please try power-cycling the controller and/or "
           "reissuing the command.\n";
  };
  EXPECT_EQ(second.exitStatus, 255);
  EXPECT_EQ(second.out, "");
  EXPECT_TRUE(second.err == refusedWith(EWOULDBLOCK) || second.err == refusedWith(EBUSY))
      << second.err;

  // On a terminal the refusal names the loader that holds the port.
  const ProcessResult watched =
      RunProcess({BuildProduct("src/qrxbpl"), "-i", "2", "-p", pty}, {}, kExitLimitMs,
                 ErrTo::kTerminal);
  EXPECT_NE(watched.err.find("qrxbpl: " + pty + " is held by process " +
                             std::to_string(first.Pid()) + " (qrxbpl)\n"),
            std::string::npos)
      << watched.err;

  EXPECT_EQ(first.ReadAll(kExitLimitMs), "");
  EXPECT_EQ(first.WaitExit(kExitLimitMs), 0) << first.CollectedErr();
  EXPECT_EQ(bench.SimulatorFinalOutput(), kLineAt115200 + "\n");
}

// A vendor event, then an ACL packet whose length word comes from the stale
// bytes the event left behind: 266 bytes claimed, more than the 259-byte event
// buffer, or exactly 259. The receive still succeeds as designed and the
// version read passes it over; with tracing on, the packet's dump stops at the
// buffer's end: cleared when it was too long to copy, whole when it fits.
TEST(BenchSafety, AnOverlongPacketIsDumpedOnlyAsFarAsTheBuffer) {
  auto repeat = [](const std::string& text, size_t times) {
    std::string out;
    for (size_t i = 0; i < times; ++i) out += text;
    return out;
  };
  const struct {
    std::string stream;  // hex
    std::string vendorDump;
    std::string aclDump;
  } cases[] = {
      {"04ff050501000000020000" + repeat("aa", 263), "04 FF 05 05 01 00 00 00 ",
       repeat("00 ", 259)},
      {"04ff02fe00020000" + repeat("bb", 256), "04 FF 02 FE 00 ", "02 00 00 " + repeat("BB ", 256)},
  };
  for (const auto& c : cases) {
    E2eBench bench;
    InstallContainer(bench, kSim, BuildTwoBlockImage(kSmallImage, true));
    const std::string pty = bench.StartPty({"--profile", "tlv-boot", "--fault", "bytes:" + c.stream});
    const std::string trace = bench.Drive().Join("trace.txt");
    const ProcessResult run = bench.RunLoader({"-i", "2", "-p", pty}, {{"QRXBPL_TRACE_FILE", trace}});
    EXPECT_EQ(run.exitStatus, 0) << run.err;
    EXPECT_EQ(run.err.rfind(kUartStart, 0), 0u) << run.err;
    // The event dumps in order: the vendor event, the ACL packet, then the answer to Read Version.
    std::vector<std::string> dumps;
    std::istringstream records(bench.Drive().Read("trace.txt"));
    for (std::string record; std::getline(records, record);) {
      if (record.rfind("EVT ", 0) == 0) dumps.push_back(record.substr(4));
    }
    ASSERT_GE(dumps.size(), 3u);
    EXPECT_EQ(dumps[0], c.vendorDump);
    EXPECT_EQ(dumps[1], c.aclDump);
    EXPECT_EQ(dumps[2].rfind("04 0E ", 0), 0u) << dumps[2];
  }
}

// -p reads a path first, then a COM number scanned after three characters
// of any kind, then a relative path, then a name under /dev: each of these
// opens the simulator's line and downloads.
TEST(BenchSafety, PortNamesOpenWhatTheyName) {
  const std::string link = "./qrx-e2e-link-" + std::to_string(getpid());
  struct Case {
    std::string port;  // PTY stands for the simulator's terminal
    bool comSeven;     // QRXBPL_COM7 names the terminal
  };
  const std::vector<Case> cases = {{"PTY", false}, {"xyz7", true}, {link, false}};
  for (const Case& c : cases) {
    E2eBench bench;
    InstallContainer(bench, kSim, BuildTwoBlockImage(kSmallImage, true));
    const std::string pty = bench.StartPty(kSim);
    std::string port = c.port == "PTY" ? pty.substr(std::string("/dev/").size()) : c.port;
    SCOPED_TRACE(port);
    std::filesystem::remove(link);
    std::filesystem::create_symlink(pty, link);
    Environment env;
    if (c.comSeven) env.push_back({"QRXBPL_COM7", pty});
    const ProcessResult run = bench.RunLoader({"-i", "2", "-p", port}, env);
    std::filesystem::remove(link);
    EXPECT_EQ(run.exitStatus, 0) << run.err;
    EXPECT_FALSE(bench.CommandLog().empty());
  }
}

// A port that will not open: into a pipe the designed lines alone, on a
// terminal the device, the reason and what to do besides, and in the report
// always. As an unprivileged user outside the device's group (made here; root
// only), the group and the command that adds the user are named.
TEST(BenchSafety, PortFailuresAreExplained) {
  const std::string designed = kPicked + R"T(No such file or directory
CMD: Read Norix Version                  ERROR: Bluetooth device port is not open!
[FAIL] Send command failed
The firmware download cannot proceed because the controller has become unresponsive. Please try power-cycling the controller and/or reissuing the command.
)T";
  const std::string missing = "/dev/ttyQRXmissing";
  const std::regex explained("qrxbpl: cannot open the serial port " + missing +
                             ": No such file or directory\n"
                             "qrxbpl: (the serial ports of this machine:( /dev/\\S+)+|no serial "
                             "ports found on this machine)\n");
  E2eBench bench;
  const std::string report = bench.Drive().Join("run.json");
  const std::vector<std::string> argv = {BuildProduct("src/qrxbpl"), "-i", "2", "-p",
                                         "ttyQRXmissing", "--report", report};
  const ProcessResult piped = RunProcess(argv);
  EXPECT_EQ(piped.err, designed);
  const auto json = nlohmann::json::parse(bench.Drive().Read("run.json"));
  EXPECT_TRUE(std::regex_match(json["portFailure"].get<std::string>(), explained)) << json;

  const ProcessResult watched = RunProcess(argv, {}, kExitLimitMs, ErrTo::kTerminal);
  EXPECT_EQ(watched.exitStatus, 255);
  const size_t after = kPicked.size() + std::strlen("No such file or directory\n");
  ASSERT_GT(watched.err.size(), after);
  const size_t end = watched.err.find("CMD: ");
  ASSERT_NE(end, std::string::npos) << watched.err;
  EXPECT_TRUE(std::regex_match(watched.err.substr(after, end - after), explained)) << watched.err;
  EXPECT_EQ(watched.err.substr(0, after) + watched.err.substr(end), designed);

  if (geteuid() != 0) GTEST_SKIP() << "making a user and changing a device's group needs root";
  const UnprivilegedUser user("users");  // not the device's group
  ASSERT_TRUE(user.Made());
  E2eBench held;
  const std::string pty = held.StartPty(kSim);
  ASSERT_EQ(RunProcess({"/bin/chgrp", "dialout", pty}).exitStatus, 0);
  ASSERT_EQ(RunProcess({"/bin/chmod", "0660", pty}).exitStatus, 0);
  const ProcessResult refused =
      RunProcess(user.Running({BuildProduct("src/qrxbpl"), "-i", "2", "-p", pty}), {},
                 kExitLimitMs, ErrTo::kTerminal);
  EXPECT_EQ(refused.exitStatus, 255);
  EXPECT_NE(refused.err.find("qrxbpl: cannot open the serial port " + pty +
                             ": Permission denied\nqrxbpl: " + pty +
                             " belongs to the group 'dialout', and user '" + user.Name() +
                             "' is not in it\nqrxbpl: add the user with: sudo usermod -aG "
                             "dialout " + user.Name() + " (then log in again)\n"),
            std::string::npos)
      << refused.err;
  EXPECT_TRUE(held.CommandLog().empty());
}

// Over TCP every read waits for the server as designed; a test station bounds
// each read, by option or variable, and the run then fails as any failed read
// does. A bound that is no number of seconds, or a report that cannot be
// written, is refused before anything starts (the option parser's first line
// included).
TEST(BenchSafety, ATcpReadTimeOutEndsARunAgainstASilentServer) {
  const std::string failedRead =
      kPicked + R"T(CMD: Read Norix Version                  ERROR: unable to read data from device
[FAIL] Read event failed
The firmware download cannot proceed because the controller has become unresponsive. Please try power-cycling the controller and/or reissuing the command.
)T";
  const std::string refused = "qrxbpl: the TCP read time-out must be whole seconds from 1 to 86400";
  struct Case {
    std::vector<std::string> more;
    Environment env;
    std::string err;
  };
  const std::vector<Case> cases = {
      {{"--tcp-timeout", "1"}, {}, failedRead},
      {{}, {{"QRXBPL_TCP_TIMEOUT", "1"}}, failedRead},
      {{"--tcp-timeout", "0"}, {}, refused + ", not '0'\n"},
      {{"--tcp-timeout", "86401"}, {}, refused + ", not '86401'\n"},
      {{}, {{"QRXBPL_TCP_TIMEOUT", "2s"}}, refused + ", not '2s'\n"},
      {{"--report", "missing/run.json"},
       {},
       "qrxbpl: cannot write the report missing/run.json: No such file or directory\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.more.empty() ? c.env[0].second : c.more[1]);
    E2eBench bench;
    const RefusingPort silent(true);
    std::vector<std::string> args = {"-i", "3", "-a", "127.0.0.1", "-p", silent.PortText()};
    args.insert(args.end(), {"--report", bench.Drive().Join("run.json")});
    args.insert(args.end(), c.more.begin(), c.more.end());
    const ProcessResult run = bench.RunLoader(args, c.env);
    EXPECT_EQ(run.exitStatus, 255);
    EXPECT_EQ(run.err, c.err);
    if (c.err != failedRead) continue;  // refused before the report began
    EXPECT_EQ(
        run.out,
        "ERROR: Failed to read data from socket error: 11\nFinished sending. Closing socket.\n");
    ExpectReportMatchesSchema(bench.Drive().Join("run.json"));
  }
}

}  // namespace
}  // namespace qrx::test
