// The loader's double-dash options against the simulator: --firmware,
// --btsnoop, --report, the terminal-only lines, --help and --version.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <regex>
#include <sstream>

#include "e2e/e2e_bench.h"
#include "platform/byte_order.h"
#include "platform/sha256.h"
#include "support/report_schema.h"

namespace qrx::test {
namespace {

using fwimage::BuildSfiImage;
using fwimage::BuildTwoBlockImage;
using Json = nlohmann::json;

const fwimage::SignedImageSpec kDecoyImage{.bodyBytes = 300, .seed = 9, .patchNumber = 0};

std::span<const uint8_t> Bytes(const std::string& text) {
  return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

// A btsnoop reader of its own: the header, then records that end exactly
// at the end of the file.
struct SnoopRecord {
  bool received;
  bool commandOrEvent;
  uint64_t timestamp;
  std::vector<uint8_t> packet;
};

uint32_t Be32(std::span<const uint8_t> b, size_t at) {
  return (uint32_t{b[at]} << 24) | (uint32_t{b[at + 1]} << 16) | (uint32_t{b[at + 2]} << 8) |
         b[at + 3];
}

std::vector<SnoopRecord> ReadSnoop(const std::string& text) {
  const std::span<const uint8_t> file = Bytes(text);
  std::vector<SnoopRecord> records;
  EXPECT_GE(file.size(), 16u);
  if (file.size() < 16) return records;
  EXPECT_EQ(std::string(text.data(), 8), std::string("btsnoop\0", 8));
  EXPECT_EQ(Be32(file, 8), 1u) << "version";
  EXPECT_EQ(Be32(file, 12), 1002u) << "datalink H4";
  size_t at = 16;
  while (at + 24 <= file.size()) {
    const uint32_t original = Be32(file, at);
    const uint32_t included = Be32(file, at + 4);
    const uint32_t flags = Be32(file, at + 8);
    EXPECT_EQ(original, included);
    EXPECT_EQ(Be32(file, at + 12), 0u) << "drops";
    EXPECT_EQ(flags & ~3u, 0u);
    const uint64_t stamp = (uint64_t{Be32(file, at + 16)} << 32) | Be32(file, at + 20);
    if (at + 24 + included > file.size()) break;
    records.push_back(
        {(flags & 1) != 0, (flags & 2) != 0, stamp,
         std::vector<uint8_t>(file.begin() + at + 24, file.begin() + at + 24 + included)});
    at += 24 + included;
  }
  EXPECT_EQ(at, file.size()) << "a record is cut short";
  return records;
}

// Checks the capture against the simulator's log: every command it received
// was captured as sent (H4 type 1 in front), every received record is an
// event, and time never runs backwards from the capture's start, which is
// today on the format's clock (microseconds since the year 0; a day's leeway
// for the time zone). Returns the received records.
std::vector<SnoopRecord> ExpectCaptureMatches(const std::vector<SnoopRecord>& records,
                                              const std::vector<std::string>& commandLog) {
  constexpr uint64_t kYear0To1970Us = 0x00DCDDB30F2F8000;
  const auto now = std::chrono::duration_cast<std::chrono::microseconds>(
                       std::chrono::system_clock::now().time_since_epoch())
                       .count();
  if (!records.empty()) {
    EXPECT_NEAR(static_cast<double>(records[0].timestamp - kYear0To1970Us),
                static_cast<double>(now), 86400e6);
  }
  std::vector<std::string> sent;
  std::vector<SnoopRecord> received;
  uint64_t last = 0;
  for (const SnoopRecord& record : records) {
    EXPECT_GE(record.timestamp, last);
    last = record.timestamp;
    EXPECT_TRUE(record.commandOrEvent);
    EXPECT_FALSE(record.packet.empty());
    if (record.packet.empty()) continue;
    if (record.received) {
      EXPECT_EQ(record.packet[0], 0x04) << "received packets are events";
      received.push_back(record);
    } else {
      EXPECT_EQ(record.packet[0], 0x01) << "sent packets are commands";
      sent.push_back(Hex(std::span(record.packet).subspan(1)));
    }
  }
  EXPECT_EQ(sent, commandLog);
  return received;
}

// btmon reads the capture and shows one line per command sent.
void ExpectBtmonReads(const std::string& path, size_t commands) {
  const ProcessResult btmon = RunProcess({"/bin/sh", "-c", "btmon -r '" + path + "'"});
  ASSERT_EQ(btmon.exitStatus, 0) << btmon.err;
  size_t shown = 0;
  for (size_t at = 0; (at = btmon.out.find("< HCI Command:", at)) != std::string::npos; ++at) {
    ++shown;
  }
  EXPECT_EQ(shown, commands) << btmon.out;
}

// A terminal transcript taken apart: each draw of the status line is "\r",
// the text and "\x1b[K"; each erase "\r\x1b[K"; a draw followed by "\n" is
// the summary that stays. Fails when anything is printed over a drawn line.
struct TerminalLines {
  std::vector<std::string> draws;
  std::vector<std::string> kept;
  std::string clean;          // everything else
  size_t linesNotRedrawn = 0;  // whole lines printed while the status was up, not followed by it
};

TerminalLines TakeStatusLines(const std::string& terminal) {
  static const std::string kClear = "\x1b[K";
  TerminalLines lines;
  bool shown = false;
  bool up = false;
  for (size_t at = 0; at < terminal.size();) {
    if (terminal[at] != '\r') {
      EXPECT_FALSE(shown) << "printed over the status line at byte " << at;
      lines.clean += terminal[at];
      if (terminal[at++] == '\n' && up &&
          (terminal.compare(at, 1, "\r") != 0 || terminal.compare(at + 1, 3, kClear) == 0)) {
        ++lines.linesNotRedrawn;
      }
      continue;
    }
    const size_t end = terminal.find(kClear, at);
    if (end == std::string::npos) {
      ADD_FAILURE() << "a status line without its clear at byte " << at;
      return lines;
    }
    const std::string text = terminal.substr(at + 1, end - at - 1);
    at = end + kClear.size();
    shown = !text.empty();
    if (text.empty()) continue;  // erased
    if (at < terminal.size() && terminal[at] == '\n') {
      lines.kept.push_back(text);
      shown = up = false;
      ++at;
      continue;
    }
    lines.draws.push_back(text);
    up = true;
  }
  EXPECT_FALSE(shown) << "the status line is left on the screen";
  return lines;
}

TEST(LinuxFeatures, HelpAndVersionAloneAnswerOnStandardOutput) {
  E2eBench bench;
  // The usage text as the design prints it for too few arguments.
  const ProcessResult designed = bench.RunLoader({});
  const std::string usage = designed.err.substr(designed.err.find("qrxbpl.exe"));
  ASSERT_EQ(designed.exitStatus, 255);
  struct Case {
    std::vector<std::string> args;
    int exitStatus;
    std::string out;
    std::string err;
  };
  const std::vector<Case> cases = {
      {{"--help"}, 0, usage, ""},
      {{"--version"}, 0, "qrxbpl " QRX_VERSION "\n" + usage.substr(0, usage.find('\n') + 1), ""},
      // Not alone: refused before anything else is read.
      {{"--help", "-i", "3"}, 255, "", "qrxbpl: option '--help' must be the only argument\n"},
  };
  for (const Case& c : cases) {
    const ProcessResult run = bench.RunLoader(c.args);
    EXPECT_EQ(run.exitStatus, c.exitStatus) << c.args[0];
    EXPECT_EQ(run.err, c.err) << c.args[0];
    if (c.args.size() > 1 || c.args[0] != "--help") {
      EXPECT_EQ(run.out, c.out) << c.args[0];
      continue;
    }
    // The design's usage text, then ours: one line per option and variable.
    EXPECT_EQ(run.out.substr(0, usage.size()), usage);
    const std::string ours = run.out.substr(usage.size());
    EXPECT_TRUE(ours.starts_with("\nOptions of this platform:\n  --firmware FILE  ")) << ours;
    EXPECT_NE(ours.find("\nEnvironment:\n  QRXBPL_COM<n>  "), std::string::npos) << ours;
  }
  EXPECT_TRUE(std::regex_match(
      usage.substr(0, usage.find('\n')),
      std::regex(
          R"(qrxbpl\.exe - qRX Patch Loader \(build \w{3} \w{3} [ 0-9]\d \d\d:\d\d:\d\d \d{4}\))")));
}

TEST(LinuxFeatures, FirmwareFileReplacesTheSearch) {
  umask(022);
  const auto image = BuildTwoBlockImage(kSmallImage, true);
  const auto sfi = BuildSfiImage(kSmallImage);
  struct Case {
    std::string name;
    bool uart;
    std::vector<uint8_t> bytes;
    std::vector<std::string> extra;
    std::string downloading;
    std::vector<uint8_t> sent;
    bool secondBlock;
  };
  const std::vector<Case> cases = {
      {"my_fw.dat", false, Container(kTlvBoot, image), {}, "FWDAT", image, true},
      {"my_fw.dat", true, Container(kTlvBoot, image), {}, "FWDAT", image, true},
      {"my_fw.sfi", false, sfi, {}, "SFI", sfi, false},
      // -fw names the type; the file is then read as a container.
      {"image.bin", false, Container(kTlvBoot, image), {"-fw", "x.dat"}, "FWDAT", image, true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name + (c.uart ? " over the UART" : ""));
    E2eBench bench;
    // A container in the searched folder that the named file must win over.
    bench.PutFirmware("qrxfw.dat", Container(kTlvBoot, BuildTwoBlockImage(kDecoyImage, true)));
    const std::string path = bench.Drive().WriteFile("elsewhere/" + c.name, c.bytes);
    const std::string snoop = bench.Drive().Join("run.snoop");
    const std::string report = bench.Drive().Join("run.json");
    const std::string pty = c.uart ? bench.StartPty(kTlvBoot) : "";
    std::vector<std::string> args = {"--firmware", path, "--btsnoop", snoop, "--report", report};
    args.insert(args.end(), c.extra.begin(), c.extra.end());
    if (c.uart) args.insert(args.begin(), {"-i", "2", "-p", pty});
    const ProcessResult run = c.uart ? bench.RunLoader(args) : bench.RunTcp(kTlvBoot, args);
    EXPECT_EQ(run.exitStatus, 0);
    const std::string picked = c.extra.empty() ? kPicked : "";
    const std::string downloading = "Initialization complete.\nDownloading " + c.downloading +
                                    " file...\n";
    EXPECT_EQ(MaskTimes(run.err),
              c.uart ? picked + kUartVersion + "[OK]\n" + downloading +
                           "CMD: Norix HCI Reset                     [OK]\nDownload complete.\n" +
                           kUartTimingTable
                     : picked + kTcpVersion + "[OK]\n" + downloading + kSmallImageFrames +
                           "CMD: Norix HCI Reset                     Send Packet Size = 24 \n[OK]\n"
                           "Download complete.\n" +
                           kTcpTimingTable);
    std::vector<std::string> expected = {"05 FC 01 FF"};
    for (const std::string& send : ExpectedSecureSends(c.sent, c.secondBlock)) {
      expected.push_back(send);
    }
    expected.push_back("01 FC 08 00 00 00 01 00 80 00 00");
    EXPECT_EQ(bench.CommandLog(), expected);
    // Captured packet by packet, and reported.
    ExpectCaptureMatches(ReadSnoop(bench.Drive().Read("run.snoop")), expected);
    ExpectBtmonReads(snoop, expected.size());
    ExpectReportMatchesSchema(report);
    const Json json = Json::parse(bench.Drive().Read("run.json"));
    EXPECT_EQ(json["firmware"]["path"], LoaderPath(path));
    EXPECT_EQ(json["exitStatus"], 0);
    // Both files readable by all, as the test's umask of 022 leaves them.
    for (const std::string& file : {snoop, report}) {
      EXPECT_EQ(std::filesystem::status(file).permissions(), std::filesystem::perms(0644)) << file;
    }
    if (!c.uart) continue;
    EXPECT_EQ(json["link"], LoaderUnderWine() ? "\\\\.\\COM5" : pty);
    EXPECT_EQ(json["timing"][1]["task"], "Windows COM Write");
    EXPECT_EQ(json["timing"].size(), 9u);
    EXPECT_EQ(bench.SimulatorFinalOutput(), "qrxvps: host closed the line at 115200 bit/s\n");
  }
}

// --list-ports names every tty a driver serves, as /sys shows them, with that
// driver; on Windows every COM port, here those Wine maps (comN in the
// prefix's dosdevices), in the order of their numbers. Not COM5: the runs
// link it to the simulator after Wine has started, so Wine never published it.
TEST(LinuxFeatures, ListPortsShowsTheTtysADriverServes) {
  if (LoaderUnderWine()) {
    std::vector<std::pair<int, std::string>> mapped;
    for (const auto& link : std::filesystem::directory_iterator(
             std::filesystem::path(BuildProduct("wineprefix")) / "dosdevices")) {
      const std::string name = link.path().filename().string();
      if (name.starts_with("com") && name != "com5")
        mapped.push_back({std::stoi(name.substr(3)), "COM" + name.substr(3)});
    }
    std::sort(mapped.begin(), mapped.end());
    std::string expected;
    for (const auto& [number, port] : mapped) expected += port + "\n";
    EXPECT_NE(expected.find("COM7\n"), std::string::npos) << "the prefix maps COM7";
    E2eBench bench;
    const ProcessResult run = bench.RunLoader({"--list-ports"});
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_EQ(run.out, expected);
    EXPECT_EQ(run.err, "");
    return;
  }
  std::vector<std::string> expected;
  for (const auto& tty : std::filesystem::directory_iterator("/sys/class/tty")) {
    const auto driver = tty.path() / "device" / "driver";
    if (!std::filesystem::exists(driver)) continue;
    expected.push_back("/dev/" + tty.path().filename().string() + " driver=" +
                       std::filesystem::read_symlink(driver).filename().string());
  }
  std::sort(expected.begin(), expected.end());
  const ProcessResult run = RunProcess({BuildProduct("src/qrxbpl"), "--list-ports"});
  EXPECT_EQ(run.exitStatus, 0);
  EXPECT_EQ(run.err, "");
  std::vector<std::string> listed;
  std::istringstream lines(run.out);
  for (std::string line; std::getline(lines, line);) {
    // Device and driver; by-id and the USB fields depend on the adapter.
    const std::regex fields(R"((\S+)(  by-id=\S+)?  driver=(\S+)(  .*)?)");
    std::smatch match;
    if (std::regex_match(line, match, fields)) {
      listed.push_back(match[1].str() + " driver=" + match[3].str());
    } else {
      listed.push_back(line);
    }
  }
  if (expected.empty()) expected.push_back("no serial ports found");
  EXPECT_EQ(listed, expected);
}

// A mistake on the command line or in the named file is answered with one
// line and exit status 255 before the link opens: the simulator hears nothing.
TEST(LinuxFeatures, MistakesAreRefusedBeforeTheController) {
  const auto sfi = BuildSfiImage(kSmallImage);
  auto cut = [&sfi](size_t from, size_t length) {
    return std::vector<uint8_t>(sfi.begin() + static_cast<long>(from),
                                sfi.begin() + static_cast<long>(from + length));
  };
  struct Case {
    bool uart;
    std::string file;  // written under the bench's drive, "" for none
    std::vector<uint8_t> bytes;
    std::vector<std::string> args;  // FILE stands for the file's path
    std::string err;                // after "qrxbpl: ", FILE likewise
  };
  const std::string named = "the firmware file FILE ";
  const std::vector<Case> cases = {
      {false, "small.sfi", sfi, {"--fimware", "FILE"},
       "unknown option '--fimware' (did you mean '--firmware'?)"},
      {true, "", {}, {"--list-prots"}, "unknown option '--list-prots' (did you mean '--list-ports'?)"},
      {false, "", {}, {"--frobnicate"}, "unknown option '--frobnicate'"},
      // Suggested up to a third of the letters changed (2 of "firmware"'s 8), not beyond.
      {false, "", {}, {"--frmwre"}, "unknown option '--frmwre' (did you mean '--firmware'?)"},
      {false, "", {}, {"--farmwaxy"}, "unknown option '--farmwaxy'"},
      {true, "", {}, {"--report"}, "option '--report' needs a value (FILE)"},
      {false, "", {}, {"--btsnoop", "--progress"}, "option '--btsnoop' needs a value (FILE)"},
      {false, "", {}, {"-v", "--version"}, "option '--version' must be the only argument"},
      {false, "", {}, {"--firmware", "/nonexistent/fw.sfi"},
       "the firmware file /nonexistent/fw.sfi cannot be read: No such file or directory"},
      {true, "empty.sfi", {}, {"--firmware", "FILE"}, named + "is empty"},
      {false, "empty.dat", {}, {"--firmware", "FILE"}, named + "is empty"},
      {false, "zero.sfi", std::vector<uint8_t>(2000, 0), {"--firmware", "FILE"},
       named + "holds nothing but zero bytes"},
      {true, "zero.dat", std::vector<uint8_t>(64, 0), {"--firmware", "FILE"},
       named + "holds nothing but zero bytes"},
      {false, "fw.bin", sfi, {"--firmware", "FILE"},
       named + "has no known type: its name (or -fw) holds none of .dat, .sfi, .bseq"},
      {false, "short.bseq", {0x01, 0x2F, 0xFC}, {"--firmware", "FILE"},
       named + "is not a whole BSEQ file: it is 3 bytes, shorter than the smallest BSEQ image "
               "(4 bytes)"},
      {false, "short.sfi", cut(0, 600), {"--firmware", "FILE"},
       named + "is not a whole SFI file: it is 600 bytes, shorter than the smallest SFI image "
               "(644 bytes)"},
      // The body's first command header is cut two bytes in.
      {false, "cut.sfi", cut(0, 646), {"--firmware", "FILE"},
       named + "is not a whole SFI file: its signed image cannot be cut into commands from "
               "offset 644"},
      {false, "sfi.dat", sfi, {"--firmware", "FILE"},
       named + "is not a whole FWDAT file: it has no FWDAT container header"},
      {false, "image.sfi", sfi, {"--firmware", "FILE", "-fw", "x.bseq"},
       named + "is not a whole BSEQ file: its BSEQ commands cannot be cut into commands from "
               "offset 4"},
  };
  for (const Case& c : cases) {
    E2eBench bench;
    const std::string path = c.file.empty() ? "" : bench.Drive().WriteFile("fw/" + c.file, c.bytes);
    // Named as given on the command line, or as the loader under Wine sees it.
    auto withPath = [&path](std::string text, bool asLoaderSees = false) {
      const std::string named = asLoaderSees ? LoaderPath(path) : path;
      for (size_t at; (at = text.find("FILE")) != std::string::npos && !path.empty();) {
        text.replace(at, 4, named);
      }
      const std::string missing = "No such file or directory";
      if (asLoaderSees && LoaderUnderWine() && text.ends_with(missing)) {
        text.replace(text.size() - missing.size(), missing.size(), "Path not found.");
      }
      return text;
    };
    std::vector<std::string> args = {"-i"};
    if (c.uart) {
      args.insert(args.end(), {"2", "-p", bench.StartPty(kTlvBoot)});
    } else {
      args.insert(args.end(), {"3", "-a", "127.0.0.1", "-p", bench.StartTcp(kTlvBoot)});
    }
    for (const std::string& arg : c.args) args.push_back(withPath(arg));
    // The design's parser has its say (without -fw, its line on where firmware
    // is picked) only when the double-dash arguments are sound; a report then
    // tells the same.
    const bool picked = c.args[0] == "--firmware" && c.args.size() == 2;
    const std::string report = bench.Drive().Join("run.json");
    if (picked) args.insert(args.end(), {"--report", report});
    SCOPED_TRACE(c.args[0] + " " + c.file);
    const ProcessResult run = bench.RunLoader(args);
    EXPECT_EQ(run.exitStatus, 255);
    const std::string refusal = "qrxbpl: " + withPath(c.err, true);
    EXPECT_EQ(run.err, (picked ? kPicked : "") + refusal + "\n");
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(bench.CommandLog(), std::vector<std::string>{});
    if (!picked) continue;
    ExpectReportMatchesSchema(report);
    const Json json = Json::parse(bench.Drive().Read("run.json"));
    EXPECT_EQ(json["errors"], Json({refusal}));
    EXPECT_EQ(json["exitStatus"], ReportedFailure());
    EXPECT_TRUE(json["firmware"].is_null());
  }
}

// A failed download over TCP: the capture holds every packet up to the
// failing event, and the report tells the whole story.
TEST(LinuxFeatures, CaptureAndReportOfAFailedTcpDownload) {
  E2eBench bench;
  const auto image = BuildTwoBlockImage(kSmallImage, true);
  const auto container = Container(kTlvBoot, image);
  bench.PutFirmware("qrxfw.dat", container);
  const std::string snoop = bench.Drive().Join("run.snoop");
  const ProcessResult run =
      bench.RunTcp({"--profile", "tlv-boot", "--fault", "failed-completion"},
                   {"--btsnoop", snoop, "--report", bench.Drive().Join("run.json")});

  EXPECT_EQ(run.exitStatus, 255);
  EXPECT_EQ(run.err, kPicked + kTcpVersion + "[OK]\n" +
                         "Initialization complete.\nDownloading FWDAT file...\n" +
                         kSmallImageFrames + "HCI event failed! status: 0x10\n" +
                         "Download incomplete!\nERROR: QRXFUL received an invalid event from the "
                         "controller. Either an invalid firmware file was suppplied or "
                         "communication was lost with the controller! Status=12\n");

  const auto records = ReadSnoop(bench.Drive().Read("run.snoop"));
  const auto commands = bench.CommandLog();
  const auto received = ExpectCaptureMatches(records, commands);
  ASSERT_GE(received.size(), 3u);
  EXPECT_EQ(Hex(received.back().packet), "04 FF 02 06 10") << "the failing completion";
  ExpectBtmonReads(snoop, commands.size());

  ExpectReportMatchesSchema(bench.Drive().Join("run.json"));
  const Json json = Json::parse(bench.Drive().Read("run.json"));
  EXPECT_EQ(json["exitStatus"], ReportedFailure());
  EXPECT_EQ(json["finished"], true);
  ASSERT_EQ(json["versionAnswers"].size(), 1u);
  // The answer as the capture saw it arrive (after the server's ready event).
  EXPECT_EQ(json["versionAnswers"][0]["hex"], HexText(received[1].packet));
  EXPECT_EQ(json["versionAnswers"][0]["form"], "tlv");
  EXPECT_EQ(json["versionAnswers"][0]["mode"], "bootloader");
  Sha256 hash;
  hash.Update(container);
  EXPECT_EQ(json["firmware"], Json({{"path", bench.SearchedFirmwarePath("qrxfw.dat")},
                                    {"kind", "FWDAT"},
                                    {"size", container.size()},
                                    {"imageSize", image.size()},
                                    {"sha256", HexText(hash.Finish())}}));
  EXPECT_EQ(json["steps"], Json::parse(R"([
      {"step": "CMD: Read Norix Version", "result": "[OK]"},
      {"step": "EVT: CommandComplete <Norix Version>", "result": "[OK]"}])"));
  EXPECT_EQ(json["libraryStatus"], Json::parse(R"([
      {"stage": "initialize", "status": 0}, {"stage": "download", "status": 12}])"));
  // Every error and failure line, the design's without "ERROR" among them.
  EXPECT_EQ(json["errors"], Json({"HCI event failed! status: 0x10", "Download incomplete!",
                                  run.err.substr(run.err.rfind("ERROR: "),
                                                 run.err.size() - run.err.rfind("ERROR: ") - 1)}));
  EXPECT_EQ(json["console"], run.err);
  EXPECT_EQ(json["link"], "127.0.0.1:" + json["arguments"][5].get<std::string>());
  EXPECT_EQ(json["capture"],
            Json({{"path", LoaderPath(snoop)}, {"records", records.size()}, {"stopped", nullptr}}));
  EXPECT_EQ(json["version"], QRX_VERSION);
  std::array<char, 256> host{};
  EXPECT_EQ(gethostname(host.data(), host.size() - 1), 0);
  std::string name = host.data();
  // Windows gives the computer's name in capitals.
  if (LoaderUnderWine()) std::transform(name.begin(), name.end(), name.begin(), ::toupper);
  EXPECT_EQ(json["host"], name);
  std::vector<std::string> tasks;
  for (const Json& row : json["timing"]) tasks.push_back(row["task"]);
  EXPECT_EQ(tasks, (std::vector<std::string>{"Patch Lib (Init)", "Patch Lib (Get Next)",
                                             "Patch Lib (Process Last)", "Initialization", "Other",
                                             "Total"}));
}

// A run cut short (here killed while it waits for an answer that never
// comes) leaves every packet it had sent or received in the capture, each
// record whole, the report of the last milestone reached, and on the console
// everything printed so far: the unfinished line too, which a buffered
// stream would have held back and lost.
TEST(LinuxFeatures, NothingIsLostWhenTheRunIsKilled) {
  struct Case {
    std::string fault;
    size_t commands;
    std::string err;  // after the version read's unfinished line
    Json versionAnswers;
    Json libraryStatus;
    Json firmwareKind;
  };
  const std::vector<Case> cases = {
      {"silent@1", 1, "", Json::array(), Json::array(), nullptr},
      {"silent@3", 3,
       "[OK]\nInitialization complete.\nDownloading FWDAT file...\nSend Packet Size = 145 \n"
       "Send Packet Size = 269 \n",
       Json::array({"answer"}), Json::parse(R"([{"stage": "initialize", "status": 0}])"), "FWDAT"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.fault);
    E2eBench bench;
    bench.PutFirmware("qrxfw.dat", Container(kTlvBoot, BuildTwoBlockImage(kSmallImage, true)));
    std::vector<std::string> sim = kTlvBoot;
    sim.insert(sim.end(), {"--fault", c.fault});
    const std::string port = bench.StartTcp(sim);
    const std::string snoop = bench.Drive().Join("cut.snoop");
    ChildProcess loader;
    ASSERT_TRUE(bench.StartLoader(loader, {"-i", "3", "-a", "127.0.0.1", "-p", port, "--btsnoop",
                                           snoop, "--report", bench.Drive().Join("cut.json")}));
    ASSERT_TRUE(bench.WaitForCommands(c.commands));
    const std::string expected = kPicked + kTcpVersion + c.err;
    EXPECT_EQ(bench.LoaderErrOnceItReads(loader, expected), expected);
    loader.Signal(SIGKILL);
    EXPECT_EQ(loader.WaitExit(5000), -1);
    EXPECT_EQ(bench.LoaderErrOnceItReads(loader, expected), expected) << "and nothing after it";
    const auto commands = bench.CommandLog();
    ASSERT_EQ(commands.size(), c.commands);
    const auto received =
        ExpectCaptureMatches(ReadSnoop(bench.Drive().Read("cut.snoop")), commands);
    EXPECT_EQ(received.size(), c.commands) << "ready event, version answer, fragment answers";
    ExpectReportMatchesSchema(bench.Drive().Join("cut.json"));
    const Json json = Json::parse(bench.Drive().Read("cut.json"));
    EXPECT_EQ(json["finished"], false);
    EXPECT_TRUE(json["exitStatus"].is_null());
    EXPECT_EQ(json["versionAnswers"].size(), c.versionAnswers.size());
    EXPECT_EQ(json["libraryStatus"], c.libraryStatus);
    EXPECT_EQ(json["firmware"].is_null() ? Json() : json["firmware"]["kind"], c.firmwareKind);
    EXPECT_EQ(json["timing"], Json::array());
  }
}

// RTS is held low while both ends change rate and raised again after, or a
// controller with hardware flow control could not answer; the failed run's
// return to 115200 (no firmware here) does the same. A pseudo-terminal has no modem lines, so
// the requests are read from a system call trace.
TEST(LinuxFeatures, RtsIsRaisedAgainAfterEachRateSwitch) {
  if (!std::filesystem::exists("/usr/bin/strace")) GTEST_SKIP() << "needs strace";
  E2eBench bench;
  const std::string trace = bench.Drive().Join("ioctl.trace");
  RunProcess({"/usr/bin/strace", "-o", trace, "-e", "trace=ioctl", "-e", "signal=none",
              BuildProduct("src/qrxbpl"), "-i", "2", "-h", "2", "-p", bench.StartPty(kTlvBoot),
              "-r", "3000000"},
             {{"QRXBPL_DRIVE_C", bench.Drive().Path()}}, 20000);
  std::istringstream lines(bench.Drive().Read("ioctl.trace"));
  std::string steps;
  for (std::string line; std::getline(lines, line);) {
    const std::pair<const char*, const char*> kSteps[] = {{"TCSETS2,", "rate "},
                                                          {"TIOCMBIC, [TIOCM_RTS]", "low "},
                                                          {"TIOCMBIS, [TIOCM_RTS]", "high "}};
    for (const auto& [request, step] : kSteps) steps += line.find(request) != line.npos ? step : "";
  }
  EXPECT_EQ(steps, "rate low rate high low rate high ");
  EXPECT_EQ(bench.SimulatorFinalOutput(), "qrxvps: host closed the line at 115200 bit/s\n");
}

// Runs argv in a mount namespace of its own where `full` is a file system of
// 32 KiB, then copies what it left there to `full`.out; the mount goes with
// the namespace. Root only.
ProcessResult RunOnASmallFileSystem(const std::string& full, std::vector<std::string> argv,
                                    const Environment& env) {
  const std::string script =
      "mount -t tmpfs -o size=32k qrxfull \"$0\" || exit 99; \"$@\"; status=$?; "
      "cp -a \"$0\"/. \"$0.out\"/; exit $status";
  argv.insert(argv.begin(), {"/usr/bin/unshare", "--mount", "--propagation", "private", "/bin/sh",
                             "-c", script, full});
  return RunProcess(argv, env);
}

// On a file system that fills up, the capture stops at once on a whole record
// and says so, on the console and in the report; the report keeps its last
// whole checkpoint.
TEST(LinuxFeatures, OutputFilesAreWholeOrAbsent) {
  if (geteuid() != 0) GTEST_SKIP() << "a small file system is mounted as root only; not root";

  const fwimage::SignedImageSpec largerThanTheDisk{
      .bodyBytes = 100000, .seed = 3, .patchNumber = 0};
  const auto image = BuildTwoBlockImage(largerThanTheDisk, true);
  for (const bool reportThereToo : {false, true}) {
    SCOPED_TRACE(reportThereToo ? "capture and report on it" : "capture on it");
    E2eBench bench;
    bench.PutFirmware("qrxfw.dat", Container(kTlvBoot, image));
    const std::string full = bench.Drive().MakeDirectories("full");
    bench.Drive().MakeDirectories("full.out");
    const std::string snoop = full + "/run.snoop";
    const std::string report = reportThereToo ? full + "/run.json" : bench.Drive().Join("run.json");
    const std::string port = bench.StartTcp(kTlvBoot);
    const ProcessResult run =
        RunOnASmallFileSystem(full,
                              {BuildProduct("src/qrxbpl"), "-i", "3", "-a", "127.0.0.1", "-p", port,
                               "--btsnoop", snoop, "--report", report},
                              {{"QRXBPL_DRIVE_C", bench.Drive().Path()}});
    EXPECT_EQ(run.exitStatus, 0) << run.err;
    EXPECT_NE(run.err.find("Download complete.\n"), std::string::npos);

    std::smatch said;
    const std::regex stopped("\nqrxbpl: the capture " + snoop +
                             " stopped at record ([0-9]+): No space left on device\n");
    ASSERT_TRUE(std::regex_search(run.err, said, stopped)) << run.err;
    const size_t stoppedAt = std::stoul(said[1]);
    const auto records = ReadSnoop(bench.Drive().Read("full.out/run.snoop"));
    EXPECT_EQ(records.size(), stoppedAt - 1);
    ExpectBtmonReads(bench.Drive().Join("full.out/run.snoop"),
                     std::count_if(records.begin(), records.end(),
                                   [](const SnoopRecord& record) { return !record.received; }));

    const std::string kept = reportThereToo ? "full.out/run.json" : "run.json";
    ExpectReportMatchesSchema(bench.Drive().Join(kept));
    const Json json = Json::parse(bench.Drive().Read(kept));
    if (reportThereToo) {
      // The last checkpoint written whole: the firmware loaded, the download not yet ended.
      EXPECT_NE(
          run.err.find("qrxbpl: cannot write the report " + report + ": No space left on device\n"),
          std::string::npos);
      EXPECT_EQ(json["finished"], false);
      EXPECT_EQ(json["libraryStatus"].size(), 1u);
      EXPECT_EQ(json["capture"]["stopped"], nullptr);
    } else {
      EXPECT_EQ(json["finished"], true);
      EXPECT_EQ(
          json["capture"],
          Json({{"path", snoop},
                {"records", stoppedAt - 1},
                {"stopped", {{"record", stoppedAt}, {"reason", "No space left on device"}}}}));
      EXPECT_EQ(json["errors"], Json({said.str().substr(1, said.str().size() - 2)}));
    }
    EXPECT_EQ(RunProcess({"/bin/sh", "-c", "ls '" + bench.Drive().Join("full.out") + "'"}).out,
              reportThereToo ? "run.json\nrun.snoop\n" : "run.snoop\n")
        << "no half-written file is left behind";
  }
}

// On a terminal the loader names the file it loaded and draws a progress
// line that it erases before any other line and draws again after it, cut to
// the terminal's width, then leaves a summary line; everything else is exactly
// the transcript of the same run into a pipe. Off the terminal, only
// --progress brings them.
TEST(LinuxFeatures, ProgressLineOnlyOnATerminal) {
  struct Case {
    bool uart;
    std::string option;  // "-v" also goes to the piped reference run
    bool terminal;
    bool progress;
    bool firmwareLine;
  };
  const std::vector<Case> cases = {
      {false, "", true, true, true},
      {true, "", true, true, true},
      {false, "-v", true, false, true},
      {true, "--no-progress", true, false, false},
      {false, "--progress", false, true, true},
  };
  const auto image = BuildTwoBlockImage(kSmallImage, true);
  for (const Case& c : cases) {
    // Wine takes a terminal for a console and redraws all output itself.
    if (c.terminal && LoaderUnderWine()) continue;
    SCOPED_TRACE(std::string(c.uart ? "uart " : "tcp ") + c.option);
    std::string reference;
    ProcessResult run;
    std::string firmwarePath;
    for (const bool withOptions : {false, true}) {
      E2eBench bench;
      bench.PutFirmware("qrxfw.dat", Container(kTlvBoot, image));
      firmwarePath = bench.SearchedFirmwarePath("qrxfw.dat");
      std::vector<std::string> args = {"-i"};
      if (c.uart) {
        args.insert(args.end(), {"2", "-p", bench.StartPty(kTlvBoot)});
      } else {
        args.insert(args.end(), {"3", "-a", "127.0.0.1", "-p", bench.StartTcp(kTlvBoot)});
      }
      if (c.option == "-v") args.push_back(c.option);
      if (!withOptions) {
        const ProcessResult piped = bench.RunLoader(args);
        ASSERT_EQ(piped.exitStatus, 0);
        reference = MaskTimes(piped.err);
        continue;
      }
      if (c.option.starts_with("--")) args.push_back(c.option);
      run = bench.RunLoader(args, {}, c.terminal ? ErrTo::kTerminal : ErrTo::kPipe);
    }
    EXPECT_EQ(run.exitStatus, 0);
    const TerminalLines lines = TakeStatusLines(run.err);
    std::string expected = reference;
    if (c.firmwareLine) {
      const std::string after = "Initialization complete.\n";
      expected.insert(expected.find(after) + after.size(),
                      "Firmware file: " + firmwarePath + " (" +
                          std::to_string(Container(kTlvBoot, image).size()) + " bytes)\n");
    }
    EXPECT_EQ(MaskTimes(lines.clean), expected);
    if (!c.progress) {
      EXPECT_TRUE(lines.draws.empty());
      EXPECT_TRUE(lines.kept.empty());
      continue;
    }
    // Drawn again under every line printed while it is up (over TCP, the
    // per-fragment lines), and on a terminal cut to its width.
    EXPECT_EQ(lines.linesNotRedrawn, 0u);
    ASSERT_FALSE(lines.draws.empty());
    const std::regex line(R"( *\d+% (\d+)/(\d+) bytes(  \d+\.\d kbit/s  \d+:\d\d left)?)");
    for (const std::string& draw : lines.draws) {
      if (c.terminal) {
        EXPECT_LT(draw.size(), size_t{kTerminalColumns}) << draw;
        EXPECT_TRUE(std::regex_match(draw, std::regex(R"( *\d+% \d+/\d+ bytes.*)"))) << draw;
      } else {
        EXPECT_TRUE(std::regex_match(draw, line)) << draw;
      }
    }
    const std::string total = std::to_string(image.size());
    EXPECT_EQ(lines.draws.back().substr(0, 4 + 2 * total.size() + 8),
              "100% " + total + "/" + total + " bytes");
    // At the end one summary stays: bytes, seconds, effective rate.
    ASSERT_EQ(lines.kept.size(), 1u);
    EXPECT_TRUE(std::regex_match(lines.kept[0], std::regex("Sent " + total +
                                                           R"( bytes in \d+\.\d\d s, \d+\.\d kbit/s)")))
        << lines.kept[0];
  }
}

}  // namespace
}  // namespace qrx::test
