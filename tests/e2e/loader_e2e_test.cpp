#include <gtest/gtest.h>

#include <cstdlib>

#include "e2e/e2e_bench.h"

namespace qrx::test {
namespace {

using fwimage::BuildSfiImage;
using fwimage::BuildTwoBlockImage;
using fwimage::SignedImageSpec;

constexpr const char* kFinishedTcp = "Finished sending. Closing socket.\n";
const std::string kReadVersionLog = "05 FC 01 FF";
const std::string kBootCmd = "CMD: Read Secure Boot Params             ";
const std::string kBootEvt = "EVT: CommandComplete <Sec Boot Params>   ";
const std::string kTcpBoot = kBootCmd + "Send Packet Size = 16 \n[OK]\n" + kBootEvt;
const std::string kUartBoot = kBootCmd + "[OK]\n" + kBootEvt;
const std::string kResent = "[FAIL] Received Unexpected Event\n";
const std::string kUnresponsive =
    "[FAIL] Read event failed\nThe firmware download cannot proceed because the controller has "
    "become unresponsive. Please try power-cycling the controller and/or reissuing the command.\n";

// Set QRX_E2E_PRINT=1 to see what a run printed when a transcript changes on purpose.
void ExpectRun(const ProcessResult& run, int exitStatus, const std::string& out,
               const std::string& err) {
  if (std::getenv("QRX_E2E_PRINT") != nullptr) {
    std::printf("--- exit %d\n--- out\n%s--- err\n%s---\n", run.exitStatus, run.out.c_str(),
                MaskTimes(run.err).c_str());
  }
  EXPECT_EQ(run.exitStatus, exitStatus);
  EXPECT_EQ(run.out, out);
  EXPECT_EQ(MaskTimes(run.err), err);
}

// The command log as head, the image's Secure Sends, then tail.
std::vector<std::string> Log(std::vector<std::string> head, const std::vector<std::string>& sends,
                             const std::vector<std::string>& tail = {}) {
  head.insert(head.end(), sends.begin(), sends.end());
  head.insert(head.end(), tail.begin(), tail.end());
  return head;
}

TEST(LoaderEndToEnd, TlvBootloaderTakesItsImageFromTheContainerOverTcp) {
  E2eBench bench;
  const auto image = BuildTwoBlockImage(kSmallImage, true);
  InstallContainer(bench, {"--profile", "tlv-boot"}, image);
  ExpectRun(bench.RunTcp({"--profile", "tlv-boot"}), 0,
            kFinishedTcp, kPicked + kTcpVersion + "[OK]\n" + R"T(Initialization complete.
Downloading FWDAT file...
)T" + kSmallImageFrames + R"T(CMD: Norix HCI Reset                     Send Packet Size = 24 
[OK]
Download complete.
)T" + kTcpTimingTable);
  EXPECT_EQ(bench.CommandLog(), Log({kReadVersionLog}, ExpectedSecureSends(image, true),
                                    {"01 FC 08 00 00 00 01 00 80 00 00"}));
}

TEST(LoaderEndToEnd, LegacyBootloaderWithSecureBootOffTakesItsNamedSfiImage) {
  E2eBench bench;
  const std::vector<std::string> sim = {"--profile", "legacy-boot", "--secure-boot", "off"};
  const auto image = BuildSfiImage(kSmallImage);
  // Named after answer bytes 0..7, then 00.sfi.
  bench.PutFirmware(SimulatorKey(sim).substr(0, 16) + "00.sfi", image);
  ExpectRun(bench.RunTcp(sim, {"-fw", "x.sfi"}), 0,
            kFinishedTcp, kTcpVersion + "[OK]\n" + kTcpBoot + R"T([OK]
SecureBoot Disabled. Update Boot Address [OK]
Reset[8] = 00 Reset[9] = 08 Reset[10] = 04 Reset[11] = 00 
Initialization complete.
Downloading SFI file...
)T" + kSmallImageFrames + R"T(CMD: Norix HCI Reset                     Send Packet Size = 24 
[OK]
Download complete.
)T" + kTcpTimingTable);
  EXPECT_EQ(bench.CommandLog(),
            Log({kReadVersionLog, "0D FC 00"}, ExpectedSecureSends(image, false),
                {"01 FC 08 00 00 00 01 00 08 04 00"}));
}

TEST(LoaderEndToEnd, OperationalControllerIsResetToItsBootloaderFirst) {
  E2eBench bench;
  const auto image = BuildTwoBlockImage(kSmallImage, false);
  InstallContainer(bench, {"--profile", "tlv-op"}, image);
  ExpectRun(
      bench.RunTcp({"--profile", "tlv-op"}, {"-f", "1"}), 0, kFinishedTcp,
      kPicked + kTcpVersion + "[OK]\n" +
          R"T(The controller is already in operational mode. Attempting to reset controller to bootloader mode now.
CMD: Norix HCI Reset                     Send Packet Size = 24 
[OK]
CMD: Read Norix Version                  Send Packet Size = 17 
[OK]
EVT: CommandComplete <Norix Version>     [OK]
Initialization complete.
Downloading FWDAT file...
)T" + kSmallImageFrames +
          R"T(Download complete.
)T" + kTcpTimingTable);
  EXPECT_EQ(bench.CommandLog(),
            Log({kReadVersionLog, "01 FC 08 01 00 00 00 00 00 00 00", kReadVersionLog},
                ExpectedSecureSends(image, false)));
}

TEST(LoaderEndToEnd, NoccDownloadsWithoutPerFragmentAnswers) {
  E2eBench bench;
  const auto image = BuildTwoBlockImage(kSmallImage, true);
  InstallContainer(bench, {"--profile", "tlv-boot"}, image);
  ExpectRun(bench.RunTcp({"--profile", "tlv-boot"}, {"-NoCc", "-v"}), 0, kFinishedTcp,
            kPicked + kTcpVersion + "[OK]\n" + R"T(Initialization complete.
Send Packet Size = 20 
Downloading FWDAT file...
SFI fragment #0 downloading 
Send Packet Size = 145 
SFI fragment #1 downloading 
Send Packet Size = 269 
SFI fragment #2 downloading 
Send Packet Size = 21 
SFI fragment #3 downloading 
Send Packet Size = 269 
SFI fragment #4 downloading 
Send Packet Size = 21 
SFI fragment #5 downloading 
Send Packet Size = 269 
SFI fragment #6 downloading 
Send Packet Size = 269 
SFI fragment #7 downloading 
CMD: Norix HCI Reset                     Send Packet Size = 24 
[OK]
Download complete.
)T" + kTcpTimingTable);
  EXPECT_EQ(bench.CommandLog(),
            Log({kReadVersionLog, "8B FC 04 03 86 01 01"}, ExpectedSecureSends(image, true),
                {"01 FC 08 00 00 00 01 00 80 00 00"}));
}

TEST(LoaderEndToEnd, BdDataGoesDownTheBseqPathInManufacturerMode) {
  // A legacy ROM part (hardware variant below 11) in operational firmware.
  const std::vector<std::string> sim = {"--profile",     "legacy-op", "--set",
                                        "hw-variant=10", "--set",     "fw-variant=0x23"};
  const auto bseq = fwimage::BuildBseqImage(fwimage::SampleBseqCommands(6, 3), true);
  // The patch-level check reads the byte after the first record's "command";
  // a non-zero value there is a newer patch than the controller's none.
  ASSERT_GT(bseq.size(), 255u);
  ASSERT_NE(bseq[255], 0);
  const std::string start = kPicked + kTcpVersion + "[OK]\n" + R"T(Initialization complete.
Downloading BSEQ file...
CMD: Enter Manufacturer Mode             Send Packet Size = 18 
[OK]
EVT: CommandComplete <Manufacturer Mode> [OK]
BSEQ fragment #0 downloading...
Send Packet Size = 16 
BSEQ fragment download complete.
BSEQ fragment #1 downloading...
Send Packet Size = 271 
)T";
  const std::string second =
      "BSEQ fragment download complete.\nBSEQ fragment #2 downloading...\n"
      "Send Packet Size = 88 \n";
  const std::string status12 =
      "Download incomplete!\nERROR: QRXFUL received an invalid event from the controller. Either "
      "an invalid firmware file was suppplied or communication was lost with the controller! "
      "Status=12\n";
  const std::string rest = second + R"T(BSEQ fragment download complete.
BSEQ fragment #3 downloading...
Send Packet Size = 41 
BSEQ fragment download complete.
BSEQ fragment #4 downloading...
Send Packet Size = 143 
BSEQ fragment download complete.
BSEQ fragment #5 downloading...
Send Packet Size = 179 
BSEQ fragment download complete.
BSEQ fragment #6 downloading...
CMD: Exit Manufacturer Mode              Send Packet Size = 18 
[OK]
EVT: CommandComplete <Manufacturer Mode> [OK]
Download complete.
)T" + kTcpTimingTable;
  // 0xFC2F waits for vendor event 0x19 and passes over its Command Complete; the others wait
  // for their Command Complete. Only a run that gets to the end succeeds. A modern part
  // (variant 11) takes the same file without manufacturer mode.
  const std::string manufacturerMode =
      "CMD: Enter Manufacturer Mode             Send Packet Size = 18 \n[OK]\n"
      "EVT: CommandComplete <Manufacturer Mode> [OK]\n";
  const std::string exitMode =
      "CMD: Exit Manufacturer Mode              Send Packet Size = 18 \n[OK]\n"
      "EVT: CommandComplete <Manufacturer Mode> [OK]\n";
  auto without = [](std::string text, const std::string& part) {
    return text.erase(text.find(part), part.size());
  };
  const std::tuple<std::string, std::vector<std::string>, std::string> cases[] = {
      {"10", {}, start + rest},
      {"10", {"--fault", "failed-status@1/fc2f"}, start + rest},
      {"10", {"--fault", "bytes:04FF021800@1/fc2f"},
       start + second + "HCI Event failed! evtID=0x18, status=0x00\n" + status12},
      {"10", {"--fault", "failed-status@4"},
       start + "Unexpected HCI Event! OCF=0x8e, status=0x1f\n" + status12},
      // Variant 0x0B from revision 0x10 reads the secure boot parameters too.
      {"11", {}, kPicked + kTcpVersion + "[OK]\n" + kTcpBoot + "[OK]\n" +
                     without(without(start + rest, manufacturerMode), exitMode)
                         .substr(kPicked.size() + kTcpVersion.size() + 5)},
  };
  for (const auto& [variant, faults, err] : cases) {
    SCOPED_TRACE("variant " + variant + (faults.empty() ? "" : " " + faults[1]));
    E2eBench bench;
    std::vector<std::string> args = sim;
    args[3] = "hw-variant=" + variant;
    // Named after the operational answer's bytes 0..7 (variant in hex), then 00.
    bench.PutFirmware("370" + std::string(variant == "10" ? "a" : "b") + "102301200f1400.bseq", bseq);
    args.insert(args.end(), faults.begin(), faults.end());
    ExpectRun(bench.RunTcp(args, {"-bd", "-v"}), err.ends_with(status12) ? 255 : 0, kFinishedTcp,
              err);
  }
}

// A legacy ROM part whose patch is current needs nothing; one that carries
// another, older patch ends silently with failure.
TEST(LoaderEndToEnd, LegacyPatchLevelDecidesWithoutADownload) {
  const struct {
    const char* controllerPatch;
    int exitStatus;
    std::string tail;
  } cases[] = {{"patch=5", 0, kTcpTimingTable}, {"patch=3", 255, ""}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.controllerPatch);
    E2eBench bench;
    const std::vector<std::string> sim = {"--profile",     "legacy-boot", "--set",
                                          "hw-variant=10", "--set",       c.controllerPatch};
    SignedImageSpec patched = kSmallImage;
    patched.patchNumber = 5;
    bench.PutFirmware(SimulatorKey(sim).substr(0, 16) + "00.sfi", BuildSfiImage(patched));
    ExpectRun(bench.RunTcp(sim, {"-b", "0x24800"}), c.exitStatus, kFinishedTcp,
              "Reset[8] = 0 Reset[9] = 72 Reset[10] = 2 Reset[11] = 0 \n" + kPicked + kTcpVersion +
                  "[OK]\n" + c.tail);
  }
}

// A run against a simulator of the profile with the case's arguments added;
// a case named "uart: ..." runs over the pseudo-terminal, the rest over TCP.
struct FaultCase {
  std::string name;
  std::vector<std::string> sim;
  std::string err;
};

void ExpectFailures(const char* profile, bool withFirmware, const std::vector<FaultCase>& cases) {
  for (const FaultCase& c : cases) {
    SCOPED_TRACE(c.name);
    E2eBench bench;
    std::vector<std::string> sim = {"--profile", profile};
    sim.insert(sim.end(), c.sim.begin(), c.sim.end());
    if (withFirmware && c.name != "no firmware anywhere") {
      InstallContainer(bench, sim, BuildTwoBlockImage(kSmallImage, true));
    }
    const bool overTcp = !c.name.starts_with("uart:");
    ExpectRun(overTcp ? bench.RunTcp(sim) : bench.RunLoader({"-i", "2", "-p", bench.StartPty(sim)}),
              255, overTcp ? kFinishedTcp : "", c.err);
  }
}

// Each library status a run can reach, with the controller misbehaving or the firmware unfit.
TEST(LoaderEndToEnd, EachFailureEndsWithItsMessage) {
  const std::string downloading = "Initialization complete.\nDownloading FWDAT file...\n";
  const std::string tcpStart = kPicked + kTcpVersion + "[OK]\n" + downloading;
  const std::string uartStart = kPicked + kUartVersion + "[OK]\n" + downloading;
  // Up to the third fragment: header and both parts of the key.
  const std::string tcpThird =
      tcpStart + "Send Packet Size = 145 \nSend Packet Size = 269 \nSend Packet Size = 21 \n";
  const std::string incomplete =
      "Download incomplete!\nERROR: QRXFUL received an invalid event from the controller. Either "
      "an invalid firmware file was suppplied or communication was lost with the controller! "
      "Status=12\n";
  ExpectFailures(
      "tlv-boot", true,
      {
          {"wrong opcode answers the third fragment",
           {"--fault", "wrong-opcode@4"},
           tcpThird + "Unexpected HCI Event! OCF=0x0a" + incomplete},
          {"wrong event code answers the third fragment",
           {"--fault", "wrong-event@4"},
           tcpThird + "Unexpected Event Received! Event Code: 0x04\n" + incomplete},
          {"the third fragment fails",
           {"--fault", "failed-status@4"},
           tcpThird + "HCI Command Complete event failed! status: 0x1f\n" + incomplete},
          {"an event without parameters",
           {"--fault", "short-event@4"},
           tcpThird + "Invalid event received! Len: 3\n" + incomplete},
          // Four bytes are enough to be read as an event; its opcode lies beyond them.
          {"a four-byte event answers the third fragment",
           {"--fault", "bytes:040E0101@4"},
           tcpThird + "Unexpected HCI Event! OCF=0x00" + incomplete},
          {"connection closed during the download",
           {"--fault", "close@4"},
           tcpThird + "ERROR: memcpy_s failed! Error=22\nQRXBPLRecvCommand failed!\n" + incomplete},
          {"the controller rejects the image",
           {"--fault", "failed-completion"},
           tcpStart + kSmallImageFrames + "HCI event failed! status: 0x10\n" + incomplete},
          {"uart: wrong event code answers a fragment",
           {"--fault", "wrong-event@4"},
           uartStart + "Unexpected Event Received! Event Code: 0x04\n" + incomplete},
          {"unknown signature scheme",
           {"--set", "sig-scheme=2"},
           tcpStart + "Download incomplete!\nERROR: QRXFUL was supplied with an invalid parameter! "
                      "Status=2\n"},
          {"bootloader answer that is not a bootloader's",
           {"--set", "boot-image-type=0"},
           kPicked + kTcpVersion + "[OK]\n" +
               R"T(The controller is already in operational mode. Attempting to reset controller to bootloader mode now.
CMD: Norix HCI Reset                     Send Packet Size = 24 
[OK]
)T" + kTcpVersion +
               "[OK]\n" + incomplete.substr(incomplete.find('\n') + 1)},
          {"no firmware anywhere", {}, kPicked + kTcpVersion + "[OK]\n" + kNoFirmware},
      });
}

TEST(LoaderEndToEnd, UnreachableServer) {
  const RefusingPort closed;
  E2eBench bench;
  // The close after the failed connect finds no socket: EBADF (9) here; on
  // Windows the socket library, already cleaned up, answers 10093 first
  // (WSANOTINITIALISED).
  const std::string closeError = LoaderUnderWine() ? "10093" : "9";
  ExpectRun(bench.RunLoader({"-i", "3", "-a", "127.0.0.1", "-p", closed.PortText()}), 255,
            "Finished sending. Closing socket.\nERROR: Socket Closed failed with error: " +
                closeError + "\n",
            kPicked + R"T(ERROR: Unable to connect to server!
cannot open the port exit
)T");
}

// The port's open failure is the system's own text, on standard error. On
// Windows that text (from the system's message table) ends in CR LF itself,
// which the C runtime's text mode turns into CR CR LF; Wine's wording for
// error 2 is "File not found." where Windows says "The system cannot find the
// file specified." A COM number that overflows when one is taken off it, with
// the trace file a FIFO nobody reads, fails the same way: no overflow, no stall.
TEST(LoaderEndToEnd, MissingSerialPort) {
  E2eBench bench;
  const std::string fifo = bench.Drive().Join("trace.fifo");
  ASSERT_EQ(RunProcess({"/usr/bin/mkfifo", fifo}).exitStatus, 0);
  const std::string systemText =
      LoaderUnderWine() ? "File not found.\r\n" : "No such file or directory\n";
  for (const char* port : {"COM4000", "COM-2147483648"}) {
    SCOPED_TRACE(port);
    ExpectRun(bench.RunLoader({"-i", "2", "-p", port}, {{"QRXBPL_TRACE_FILE", fifo}}), 255, "",
              kPicked + systemText + kVersionCmd + "ERROR: Bluetooth device port is not open!\n" +
                  "[FAIL] Send command failed\n" +
                  kUnresponsive.substr(kUnresponsive.find('\n') + 1));
  }
}

TEST(LoaderEndToEnd, UartWithoutPortName) {
  E2eBench bench;
  // The usage text itself is checked word for word by the option tests.
  const ProcessResult usage = bench.RunLoader({"-i"});
  const std::string usageText = usage.err.substr(usage.err.find("\n\n") + 2);
  ExpectRun(
      bench.RunLoader({"-i", "2", "-h", "1"}), 255, "",
      "Firmware file will be picked from custom location:'C:\\Program Files\\Norix\\Bluetooth' \n"
      "invalid port name, please revisit \"-p\" argument\n" +
          MaskTimes(usageText));
}

TEST(LoaderEndToEnd, UartDownloadAtASwitchedRate) {
  E2eBench bench;
  const auto image = BuildTwoBlockImage(kSmallImage, true);
  InstallContainer(bench, {"--profile", "tlv-boot"}, image);
  const std::string pty = bench.StartPty({"--profile", "tlv-boot"});

  ExpectRun(bench.RunLoader({"-i", "2", "-h", "2", "-p", pty, "-r", "3000000"}), 0, "",
            kPicked + kUartVersion + "[OK]\n" + R"T(CMD: Change Baud Rate (3000000)          [OK]
Setting Local Baud Rate to (3000000)     [OK]
Initialization complete.
Downloading FWDAT file...
CMD: Norix HCI Reset                     [OK]
Download complete.
)T" + kUartTimingTable);
  EXPECT_EQ(bench.SimulatorFinalOutput(), "qrxvps: host closed the line at 115200 bit/s\n");
}

// The vendor exchanges and both links against a misbehaving controller. No
// firmware is installed, so a run that gets through ends at the search. The
// first cases run over both links, with each link's lines.
TEST(LoaderEndToEnd, VendorExchangesOverBothLinksWithFaults) {
  std::vector<FaultCase> cases;
  for (const bool uart : {false, true}) {
    const std::string version = uart ? kUartVersion : kTcpVersion;
    const std::string boot = uart ? kUartBoot : kTcpBoot;
    const std::string link = uart ? "uart: " : "tcp: ";
    const std::vector<FaultCase> both = {
        {"vendor event and a stray answer before the version",
         {"--fault", "unsolicited@1", "--fault", "stray-complete@1"},
         kPicked + version + "[OK]\n" + boot + "[OK]\n" + kNoFirmware},
        {"late reset answer before the version",
         {"--fault", "pending-reset@1"},
         kPicked + version + kResent + version + "[OK]\n" + boot + "[OK]\n" + kNoFirmware},
        {"secure boot query fails",
         {"--fault", "failed-status@1/fc0d"},
         kPicked + version + "[OK]\n" + boot + "[FAIL] Invalid event\n" + kNoFirmware},
    };
    for (FaultCase c : both) {
      c.name = link + c.name;
      cases.push_back(c);
    }
  }
  const std::vector<FaultCase> once = {
      {"tcp: prefix-only message",
       {"--fault", "prefix-only@1"},
       kPicked + kTcpVersion + "ERROR: unable to read data from device\n" + kUnresponsive},
      {"tcp: connection closed",
       {"--fault", "close@1"},
       kPicked + kTcpVersion + "ERROR: memcpy_s failed! Error=22\n" + kUnresponsive},
      {"uart: secure boot off",
       {"--secure-boot", "off"},
       kPicked + kUartVersion + "[OK]\n" + kUartBoot +
           "[OK]\nSecureBoot Disabled. Update Boot Address [OK]\nReset[8] = 00 Reset[9] = 08 "
           "Reset[10] = 04 Reset[11] = 00 \n" +
           kNoFirmware},
      {"uart: event split over writes",
       {"--fault", "split@1"},
       kPicked + kUartVersion + "[OK]\n" + kUartBoot + "[OK]\n" + kNoFirmware},
      {"uart: silent controller",
       {"--fault", "silent@1"},
       kPicked + kUartVersion + "ERROR: unable to read data from device\n" + kUnresponsive},
      {"uart: noise byte on the line",
       {"--fault", "noise@1"},
       kPicked + kUartVersion + kUnresponsive},
  };
  cases.insert(cases.end(), once.begin(), once.end());
  ExpectFailures("legacy-boot", false, cases);
}

}  // namespace
}  // namespace qrx::test
