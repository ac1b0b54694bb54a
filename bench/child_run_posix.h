#pragma once

// The loader timed to its end with its peak memory.

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace qrx::bench {

// A new empty folder under the system's temporary folder; "" on failure.
std::string MakeWorkFolder();

using Environment = std::vector<std::pair<std::string, std::string>>;

struct TimedRun {
  int exitStatus = -1;  // -1: could not start, or ended by a signal
  int64_t wallNs = 0;   // from start to exit
  int64_t peakRssKiB = 0;
  int64_t cpuNs = 0;  // user and system time
};

// A run started and not yet waited for, so that several can run at once.
struct TimedChild {
  int pid = -1;
  int report = -1;  // the fresh process's figures come through this pipe
};

// Runs argv to its end with extra environment variables, standard output and
// standard error written to the two files. The run is started from a small
// fresh process (this program again, with kTimedRunFlag): a child's peak
// memory counts that of the process it was forked from, and the bench's own
// holds every image.
TimedRun RunTimed(const std::vector<std::string>& argv, const Environment& env,
                  const std::string& outFile, const std::string& errFile);
TimedChild StartTimed(const std::vector<std::string>& argv, const Environment& env,
                      const std::string& outFile, const std::string& errFile);
TimedRun FinishTimed(const TimedChild& child);

// The fresh process's side: argv is {self, kTimedRunFlag, OUT, ERR, program,
// args...}; runs the program and prints "status wallNs peakKiB cpuNs" on standard
// output. Returns the process exit status.
constexpr const char* kTimedRunFlag = "--timed-run";
int TimedRunMain(int argc, char** argv);

}  // namespace qrx::bench
