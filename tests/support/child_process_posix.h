#pragma once

// A program of the build started by a test: its standard output is a pipe the
// test reads lines from; standard error stays the test's. The destructor
// kills and reaps it, so no test leaves a process behind.

#include <optional>
#include <string>
#include <vector>

namespace qrx::test {

// Path of a build product, from QRX_BUILD_DIR (set by ctest), e.g. "sim/qrxvps".
std::string BuildProduct(const std::string& relative);

class ChildProcess {
 public:
  ChildProcess() = default;
  ~ChildProcess();
  ChildProcess(ChildProcess&& other) noexcept;
  ChildProcess& operator=(ChildProcess&&) = delete;
  ChildProcess(const ChildProcess&) = delete;

  // Starts program with args; false when it could not be started.
  bool Start(const std::string& program, const std::vector<std::string>& args);
  // One line of its standard output without the line end; nullopt on time-out
  // or end of output.
  std::optional<std::string> ReadLine(int timeoutMs);
  // All standard output until it ends (or the time-out passes).
  std::string ReadAll(int timeoutMs);
  // Waits for the exit; the exit status, or -1 on time-out or a signal.
  int WaitExit(int timeoutMs);
  void Terminate();  // SIGTERM
  bool Running();

 private:
  int pid_ = -1;
  int out_ = -1;
  std::string pending_;
  int status_ = -1;
  bool reaped_ = false;
};

// Runs program to its end; its exit status (-1 on failure) and standard output.
int RunProgram(const std::string& program, const std::vector<std::string>& args,
               std::string* out = nullptr, int timeoutMs = 20000);

}  // namespace qrx::test
