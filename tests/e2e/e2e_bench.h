#pragma once

// The end-to-end bench: the real qrxbpl program against the real qrxvps
// simulator, with a temporary folder as drive C holding the firmware.
//
// With QRX_WINE_LOADER naming a launcher of the Windows build's qrxbpl.exe
// under Wine, the same cases run that program in the prefix the launcher
// uses, the build's "wineprefix": the firmware folder is linked into the
// prefix's drive C, and the simulator's pseudo-terminal is the prefix's COM5.

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "image/fw_image.h"
#include "support/child_process_posix.h"
#include "support/temp_dir.h"

namespace qrx::test {

// Where the loader looks for firmware, below drive C.
constexpr const char* kFirmwareFolder = "Program Files/Norix/Bluetooth";

// Whether the loader under test is the Windows build, run under Wine.
bool LoaderUnderWine();
// A path of this machine as the loader is given it: as it stands, or under
// Wine as its drive Z maps it (Z:\tmp\...).
std::string LoaderPath(const std::string& hostPath);
// The exit status the loader's run report gives a failure: the design's -1
// on Windows.
inline int ReportedFailure() {
  return LoaderUnderWine() ? -1 : 255;
}

class E2eBench {
 public:
  E2eBench() = default;
  ~E2eBench();

  // Starts the simulator over TCP; returns the port text. With once, it ends
  // with the first session; else it serves one session after another.
  std::string StartTcp(const std::vector<std::string>& simArgs, bool once = true);
  // Starts it behind a pseudo-terminal; returns the terminal's path.
  std::string StartPty(const std::vector<std::string>& simArgs, bool once = true);
  // The simulator's next line on standard output; nullopt on time-out.
  std::optional<std::string> SimulatorLine();

  // Runs qrxbpl with QRXBPL_DRIVE_C pointing at the bench's drive, or under
  // Wine with the bench's drive linked in (env is then not passed on, and
  // paths under the drive are given as LoaderPath names them). A Windows
  // run's CR LF line ends are checked and folded to LF, so the transcripts
  // compare alike.
  ProcessResult RunLoader(const std::vector<std::string>& args, const Environment& env = {},
                          ErrTo err = ErrTo::kPipe);
  // Starts the simulator over TCP with simArgs, then runs the loader against
  // it: "-i 3 -a 127.0.0.1 -p PORT", then more.
  ProcessResult RunTcp(const std::vector<std::string>& simArgs,
                       const std::vector<std::string>& more = {}) {
    std::vector<std::string> args = {"-i", "3", "-a", "127.0.0.1", "-p", StartTcp(simArgs)};
    args.insert(args.end(), more.begin(), more.end());
    return RunLoader(args);
  }
  // Starts it the same way and leaves it running.
  bool StartLoader(ChildProcess& loader, const std::vector<std::string>& args);
  // What a started loader printed on standard error (line ends folded) once
  // it reads `expected`, or after a wait that gives it every chance to.
  std::string LoaderErrOnceItReads(ChildProcess& loader, const std::string& expected);
  // Waits until the simulator has logged at least count commands.
  bool WaitForCommands(size_t count);

  // Firmware file in the loader's folder on drive C.
  void PutFirmware(const std::string& name, std::span<const uint8_t> bytes);
  // The path the loader opens a file of that folder by.
  std::string SearchedFirmwarePath(const std::string& name) const;

  // The simulator's command log: one line per command it received.
  std::vector<std::string> CommandLog() const;
  // What the simulator printed on standard output after its first line, once it ended.
  std::string SimulatorFinalOutput();

  const TempDir& Drive() const { return drive_; }

 private:
  std::string Start(std::vector<std::string> args, const std::string& firstLinePrefix, bool once);
  std::vector<std::string> LoaderArgv(const std::vector<std::string>& args) const;
  std::vector<std::string> WineArgv(std::vector<std::string> args);

  TempDir drive_;
  std::string ptyPath_;
  ChildProcess sim_;
  bool started_ = false;
};

// The key qrxvps prints for a profile (and field overrides): the FWDAT match key.
std::string SimulatorKey(const std::vector<std::string>& simArgs);

// Hex text ("0a0b") to bytes.
std::vector<uint8_t> FromHex(const std::string& hex);

// Timing figures vary from run to run, and so does their width in the
// column: each figure with the blanks before it becomes " #". Everything
// else must match exactly.
std::string MaskTimes(const std::string& transcript);
// The timing table as MaskTimes leaves it (each figure and its padding one
// "#"), over TCP and over UART.
inline const std::string kTcpTimingTable =
    "Task                      %Time        Time(Sec)\n"
    "Patch Lib (Init): # #\nPatch Lib (Get Next): # #\nPatch Lib (Process Last): # #\n"
    "Initialization: # #\nOther: # #\nTotal: # #\n";
inline const std::string kUartTimingTable =
    "Task                      %Time        Time(Sec)\n"
    "Switch Baudrate: # #\nWindows COM Write: # #\nWindows COM Read: # #\n" +
    kTcpTimingTable.substr(kTcpTimingTable.find('\n') + 1);

// Pieces of the transcripts the suites share, named for what they show.
inline const std::string kPicked =
    "Firmware file will be picked from custom location:'C:\\Program Files\\Norix\\Bluetooth' \n";
inline const std::string kVersionCmd = "CMD: Read Norix Version                  ";
inline const std::string kVersionEvt = "EVT: CommandComplete <Norix Version>     ";
inline const std::string kTcpVersion = kVersionCmd + "Send Packet Size = 17 \n[OK]\n" + kVersionEvt;
inline const std::string kUartVersion = kVersionCmd + "[OK]\n" + kVersionEvt;
inline const std::string kNoFirmware =
    "ERROR: QRXFUL was unable to find viable firmware! Status=11\n\nPlease copy the Firmware file "
    "in custom location C:\\Program Files\\Norix\\Bluetooth \n";
inline const std::vector<std::string> kTlvBoot = {"--profile", "tlv-boot"};
// Small images keep the transcripts short; each still has every fragment kind.
constexpr fwimage::SignedImageSpec kSmallImage{.bodyBytes = 300, .seed = 5, .patchNumber = 0};
// The frames a download of a kSmallImage sends over TCP: header, key and
// signature in two parts each, then the body's two groups.
inline const std::string kSmallImageFrames =
    "Send Packet Size = 145 \nSend Packet Size = 269 \nSend Packet Size = 21 \n"
    "Send Packet Size = 269 \nSend Packet Size = 21 \nSend Packet Size = 269 \n"
    "Send Packet Size = 269 \n";

// A container holding one signed image, keyed for the simulator run with sim.
std::vector<uint8_t> Container(const std::vector<std::string>& sim,
                               const std::vector<uint8_t>& image);
// The same, installed as the bench's qrxfw.dat.
inline void InstallContainer(E2eBench& bench, const std::vector<std::string>& sim,
                             const std::vector<uint8_t>& image) {
  bench.PutFirmware("qrxfw.dat", Container(sim, image));
}

// A loopback port bound and never listened on, so connecting is refused; or,
// listening, a silent server: the system's backlog takes the connection and
// nothing ever answers.
class RefusingPort {
 public:
  explicit RefusingPort(bool listening = false);
  ~RefusingPort();
  RefusingPort(const RefusingPort&) = delete;
  RefusingPort& operator=(const RefusingPort&) = delete;
  std::string PortText() const { return std::to_string(port_); }

 private:
  int fd_ = -1;
  uint16_t port_ = 0;
};

// Bytes as the simulator logs them: upper-case hex pairs, one blank between.
std::string Hex(std::span<const uint8_t> bytes);

// The Secure Send commands a download of this signed image sends, as the
// simulator logs them, computed independently of the loader.
std::vector<std::string> ExpectedSecureSends(std::span<const uint8_t> image, bool secondBlock);

}  // namespace qrx::test
