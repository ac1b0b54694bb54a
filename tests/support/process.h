#pragma once

#include <chrono>
#include <string>
#include <utility>
#include <vector>

namespace qrx::test {

struct ProcessResult {
  int exitStatus = -1;  // -1 when it had to be killed
  std::string out;
  std::string err;
};

using Environment = std::vector<std::pair<std::string, std::string>>;

// Runs a program to its end with extra environment variables, collecting
// both streams. Killed after the time limit so a hang fails the test.
ProcessResult RunProcess(const std::vector<std::string>& argv, const Environment& env = {},
                         std::chrono::milliseconds limit = std::chrono::seconds(60));

// A program left running beside the test (the simulator). Its standard
// output is read line by line; it is stopped and reaped when destroyed.
class BackgroundProcess {
 public:
  explicit BackgroundProcess(const std::vector<std::string>& argv, const Environment& env = {});
  ~BackgroundProcess();
  BackgroundProcess(const BackgroundProcess&) = delete;
  BackgroundProcess& operator=(const BackgroundProcess&) = delete;

  // The next line of its standard output (without the line end), or "" at
  // end of output or after the time limit.
  std::string ReadLine(std::chrono::milliseconds limit = std::chrono::seconds(10));
  // Asks it to stop, waits for it, and returns its exit status.
  int Stop();

 private:
  int pid_ = -1;
  int outFd_ = -1;
  std::string pending_;
};

// Path of a program built by this build tree (QRX_BUILD_DIR is set by ctest).
std::string BuiltProgram(const std::string& relativePath);

}  // namespace qrx::test
