#pragma once

// A program of the build started by a test: its standard output is a pipe the
// test reads; standard error stays the test's unless RunProcess collects it.
// The destructor kills and reaps it, so no test leaves a process behind.

#include <chrono>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace qrx::test {

// Path of a build product, from QRX_BUILD_DIR (set by ctest), e.g. "sim/qrxvps".
std::string BuildProduct(const std::string& relative);

struct ProcessResult {
  int exitStatus = -1;  // -1 when it could not start or had to be killed
  std::string out;
  std::string err;
};

using Environment = std::vector<std::pair<std::string, std::string>>;

// The width of the terminal ErrTo::kTerminal gives a child.
constexpr unsigned short kTerminalColumns = 40;

// Where a child's standard error goes.
enum class ErrTo { kTest, kPipe, kTerminal };

// Runs a program to its end with extra environment variables, collecting
// both streams. Killed after the time limit so a hang fails the test. With
// kTerminal standard error is a raw pseudo-terminal, so `err` holds every
// byte an operator's terminal would get.
ProcessResult RunProcess(const std::vector<std::string>& argv, const Environment& env = {},
                         int timeoutMs = 60000, ErrTo err = ErrTo::kPipe);

class ChildProcess {
 public:
  ChildProcess() = default;
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  // Starts program with args; false when it could not be started.
  bool Start(const std::string& program, std::vector<std::string> args) {
    args.insert(args.begin(), program);
    return Spawn(std::move(args), {}, ErrTo::kTest);
  }
  // Starts argv with extra environment variables, collecting standard error too.
  bool StartCollecting(std::vector<std::string> argv, const Environment& env) {
    return Spawn(std::move(argv), env, ErrTo::kPipe);
  }
  // Standard error collected so far (by ReadAll).
  const std::string& CollectedErr() const { return texts_[1]; }
  // One line of its standard output without the line end; nullopt on time-out
  // or end of output.
  std::optional<std::string> ReadLine(int timeoutMs);
  // All standard output until it ends (or the time-out passes).
  std::string ReadAll(int timeoutMs);
  // Waits for the exit; the exit status, or -1 on time-out or a signal.
  int WaitExit(int timeoutMs);
  // The signal that ended it, once WaitExit saw it end; 0 when it exited.
  int EndingSignal() const { return endingSignal_; }
  void Terminate();  // SIGTERM
  void Signal(int signalNumber);
  int Pid() const { return pid_; }

 private:
  friend ProcessResult RunProcess(const std::vector<std::string>&, const Environment&, int, ErrTo);
  bool Spawn(std::vector<std::string> argv, const Environment& env, ErrTo err);
  // Appends what came next on either stream; false at the deadline or when both ended.
  bool ReadMore(std::chrono::steady_clock::time_point deadline);
  int pid_ = -1;
  int status_ = -1;
  int endingSignal_ = 0;
  int pipes_[2] = {-1, -1};  // standard output, collected standard error
  std::string texts_[2];
};

}  // namespace qrx::test
