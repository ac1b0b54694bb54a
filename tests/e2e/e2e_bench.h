#pragma once

// The end-to-end bench: the real qrxbpl program against the real qrxvps
// simulator, with a temporary folder as drive C holding the firmware.

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "support/child_process_posix.h"
#include "support/temp_dir.h"

namespace qrx::test {

// Where the loader looks for firmware, below drive C.
constexpr const char* kFirmwareFolder = "Program Files/Norix/Bluetooth";

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

  // Runs qrxbpl with QRXBPL_DRIVE_C pointing at the bench's drive.
  ProcessResult RunLoader(const std::vector<std::string>& args, const Environment& env = {});
  // Starts it the same way and leaves it running.
  bool StartLoader(ChildProcess& loader, const std::vector<std::string>& args);
  // Waits until the simulator has logged at least count commands.
  bool WaitForCommands(size_t count);

  // Firmware file in the loader's folder on drive C.
  void PutFirmware(const std::string& name, std::span<const uint8_t> bytes);

  // The simulator's command log: one line per command it received.
  std::vector<std::string> CommandLog() const;
  // What the simulator printed on standard output after its first line, once it ended.
  std::string SimulatorFinalOutput();

  const TempDir& Drive() const { return drive_; }

 private:
  std::string Start(std::vector<std::string> args, const std::string& firstLinePrefix, bool once);
  std::vector<std::string> LoaderArgv(const std::vector<std::string>& args) const;

  TempDir drive_;
  ChildProcess sim_;
  bool started_ = false;
};

// The key qrxvps prints for a profile (and field overrides): the FWDAT match key.
std::string SimulatorKey(const std::vector<std::string>& simArgs);

// Hex text ("0a0b") to bytes.
std::vector<uint8_t> FromHex(const std::string& hex);

// Timing figures vary from run to run; everything else must match exactly.
std::string MaskTimes(const std::string& transcript);

// The Secure Send commands a download of this signed image sends, as the
// simulator logs them, computed independently of the loader.
std::vector<std::string> ExpectedSecureSends(std::span<const uint8_t> image, bool secondBlock);

}  // namespace qrx::test
