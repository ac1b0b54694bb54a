#include "e2e/e2e_bench.h"

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <regex>
#include <sstream>
#include <thread>

#include "support/secure_sends.h"

namespace qrx::test {

namespace {
constexpr int kStartLimitMs = 10000;
constexpr int kRunLimitMs = 60000;
// How long a running loader is given to print what it is due to, in steps.
constexpr int kSettleMs = 3000;
constexpr int kPollMs = 20;
constexpr const char* kCommandLogName = "commands.log";
// The Windows loader's COM port, mapped onto the simulator's pseudo-terminal.
constexpr const char* kWinePortName = "COM5";
constexpr const char* kWinePortDevice = "dosdevices/com5";
constexpr const char* kWineVendorFolder = "drive_c/Program Files/Norix";

std::string EnvironmentText(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr ? value : "";
}

// Points link at target, replacing whatever was there.
void Relink(const std::filesystem::path& link, const std::filesystem::path& target) {
  std::error_code ignored;
  std::filesystem::remove(link, ignored);
  std::filesystem::create_directories(link.parent_path(), ignored);
  std::filesystem::create_directory_symlink(target, link);
}

// The C runtime writes each line end as CR LF; one without CR is a fault.
std::string FoldLineEnds(const std::string& text, const char* stream) {
  std::string folded;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\n' && (i == 0 || text[i - 1] != '\r')) {
      ADD_FAILURE() << stream << ": line end without CR at " << i;
    }
    if (text[i] == '\r' && i + 1 < text.size() && text[i + 1] == '\n') continue;
    folded += text[i];
  }
  return folded;
}

}  // namespace

std::string Hex(std::span<const uint8_t> bytes) {
  std::string text;
  char pair[4];
  for (uint8_t b : bytes) {
    std::snprintf(pair, sizeof pair, "%02X ", b);
    text += pair;
  }
  if (!text.empty()) text.pop_back();
  return text;
}

RefusingPort::RefusingPort(bool listening) : fd_(socket(AF_INET, SOCK_STREAM, 0)) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  auto* generic = reinterpret_cast<sockaddr*>(&address);
  EXPECT_TRUE(fd_ >= 0 && bind(fd_, generic, length) == 0 &&
              getsockname(fd_, generic, &length) == 0 && (!listening || listen(fd_, 4) == 0));
  port_ = ntohs(address.sin_port);
}

RefusingPort::~RefusingPort() {
  if (fd_ >= 0) close(fd_);
}

std::vector<uint8_t> Container(const std::vector<std::string>& sim,
                               const std::vector<uint8_t>& image) {
  std::vector<fwimage::FwdatEntrySpec> entries(1);
  entries[0].kindByte = 1;  // signed
  entries[0].matchKey = fwimage::MatchKey(FromHex(SimulatorKey(sim)));
  entries[0].image = image;
  return fwimage::BuildFwdat(entries);
}

E2eBench::~E2eBench() {
  if (started_) {
    sim_.Terminate();
    sim_.WaitExit(5000);
  }
}

std::string E2eBench::Start(std::vector<std::string> args, const std::string& firstLinePrefix,
                            bool once) {
  if (once) args.push_back("--once");
  args.push_back("--log");
  args.push_back(drive_.Join(kCommandLogName));
  started_ = sim_.Start(BuildProduct("sim/qrxvps"), args);
  EXPECT_TRUE(started_);
  const auto line = sim_.ReadLine(kStartLimitMs);
  EXPECT_TRUE(line && line->rfind(firstLinePrefix, 0) == 0) << line.value_or("(nothing)");
  return line ? line->substr(std::min(line->size(), firstLinePrefix.size())) : "";
}

std::string E2eBench::StartTcp(const std::vector<std::string>& simArgs, bool once) {
  std::vector<std::string> args = {"--tcp", "--port", "0"};
  args.insert(args.end(), simArgs.begin(), simArgs.end());
  return Start(args, "qrxvps: listening on 127.0.0.1:", once);
}

std::string E2eBench::StartPty(const std::vector<std::string>& simArgs, bool once) {
  std::vector<std::string> args = {"--pty"};
  args.insert(args.end(), simArgs.begin(), simArgs.end());
  ptyPath_ = Start(args, "qrxvps: pty ", once);
  return ptyPath_;
}

std::optional<std::string> E2eBench::SimulatorLine() {
  return sim_.ReadLine(kStartLimitMs);
}

bool LoaderUnderWine() {
  return !EnvironmentText("QRX_WINE_LOADER").empty();
}

std::string LoaderPath(const std::string& hostPath) {
  if (!LoaderUnderWine()) return hostPath;
  std::string path = "Z:" + hostPath;
  std::replace(path.begin(), path.end(), '/', '\\');
  return path;
}

std::vector<std::string> E2eBench::WineArgv(std::vector<std::string> args) {
  const std::filesystem::path prefix = BuildProduct("wineprefix");
  Relink(prefix / kWineVendorFolder, drive_.MakeDirectories("Program Files/Norix"));
  for (std::string& arg : args) {
    if (arg.starts_with(drive_.Path() + "/")) arg = LoaderPath(arg);
    if (ptyPath_.empty() || arg != ptyPath_) continue;
    arg = kWinePortName;
    std::error_code ignored;
    std::filesystem::remove(prefix / kWinePortDevice, ignored);
    std::filesystem::create_symlink(ptyPath_, prefix / kWinePortDevice);
  }
  args.insert(args.begin(), EnvironmentText("QRX_WINE_LOADER"));
  return args;
}

std::vector<std::string> E2eBench::LoaderArgv(const std::vector<std::string>& args) const {
  std::vector<std::string> argv = {BuildProduct("src/qrxbpl")};
  argv.insert(argv.end(), args.begin(), args.end());
  return argv;
}

ProcessResult E2eBench::RunLoader(const std::vector<std::string>& args, const Environment& env,
                                  ErrTo err) {
  if (!LoaderUnderWine()) {
    Environment all = {{"QRXBPL_DRIVE_C", drive_.Path()}};
    all.insert(all.end(), env.begin(), env.end());
    return RunProcess(LoaderArgv(args), all, kRunLimitMs, err);
  }
  ProcessResult run = RunProcess(WineArgv(args), {}, kRunLimitMs, err);
  run.out = FoldLineEnds(run.out, "stdout");
  run.err = FoldLineEnds(run.err, "stderr");
  return run;
}

bool E2eBench::StartLoader(ChildProcess& loader, const std::vector<std::string>& args) {
  if (LoaderUnderWine()) return loader.StartCollecting(WineArgv(args), {});
  return loader.StartCollecting(LoaderArgv(args), {{"QRXBPL_DRIVE_C", drive_.Path()}});
}

std::string E2eBench::LoaderErrOnceItReads(ChildProcess& loader, const std::string& expected) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(kSettleMs);
  std::string err;
  while (err != expected && std::chrono::steady_clock::now() < deadline) {
    loader.ReadAll(kPollMs);
    err = LoaderUnderWine() ? FoldLineEnds(loader.CollectedErr(), "stderr") : loader.CollectedErr();
  }
  return err;
}

bool E2eBench::WaitForCommands(size_t count) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(kRunLimitMs);
  while (CommandLog().size() < count) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

void E2eBench::PutFirmware(const std::string& name, std::span<const uint8_t> bytes) {
  drive_.WriteFile(std::string(kFirmwareFolder) + "/" + name, bytes);
}

std::string E2eBench::SearchedFirmwarePath(const std::string& name) const {
  if (!LoaderUnderWine()) return drive_.Join(std::string(kFirmwareFolder) + "/" + name);
  return "C:\\\\Program Files\\Norix\\Bluetooth\\" + name;  // the doubled separator as designed
}

std::vector<std::string> E2eBench::CommandLog() const {
  std::vector<std::string> lines;
  std::istringstream log(drive_.Read(kCommandLogName));
  for (std::string line; std::getline(log, line);) lines.push_back(line);
  return lines;
}

std::string E2eBench::SimulatorFinalOutput() {
  if (!started_) return "";
  std::string rest = sim_.ReadAll(kStartLimitMs);
  sim_.WaitExit(kStartLimitMs);
  started_ = false;
  return rest;
}

std::string SimulatorKey(const std::vector<std::string>& simArgs) {
  std::vector<std::string> argv = {BuildProduct("sim/qrxvps")};
  argv.insert(argv.end(), simArgs.begin(), simArgs.end());
  argv.push_back("--print-key");
  std::string key = RunProcess(argv).out;
  while (!key.empty() && (key.back() == '\n' || key.back() == '\r')) key.pop_back();
  return key;
}

std::vector<uint8_t> FromHex(const std::string& hex) {
  std::vector<uint8_t> bytes;
  for (size_t i = 0; i + 1 < hex.size(); i += 2) {
    bytes.push_back(static_cast<uint8_t>(std::stoul(hex.substr(i, 2), nullptr, 16)));
  }
  return bytes;
}

std::string MaskTimes(const std::string& transcript) {
  static const std::regex kFigure(" *(-?[0-9]+\\.[0-9]{6}|-?nan|-?inf)");
  static const std::regex kBuildStamp("\\(build [^)]*\\)");
  return std::regex_replace(std::regex_replace(transcript, kFigure, " #"), kBuildStamp,
                            "(build #)");
}

std::vector<std::string> ExpectedSecureSends(std::span<const uint8_t> image, bool secondBlock) {
  std::vector<std::string> sends;
  for (const auto& command : SecureSendCommands(image, 0, secondBlock))
    sends.push_back(Hex(command));
  return sends;
}

}  // namespace qrx::test
