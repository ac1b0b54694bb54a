#include "child_run_posix.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace qrx::bench {

namespace {

int64_t NowNs() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<int64_t>(now.tv_sec) * 1000000000 + now.tv_nsec;
}

std::vector<char*> Pointers(const std::vector<std::string>& argv) {
  std::vector<char*> pointers;
  for (const std::string& arg : argv) pointers.push_back(const_cast<char*>(arg.c_str()));
  pointers.push_back(nullptr);
  return pointers;
}

// In the child: never returns.
[[noreturn]] void Exec(const std::vector<std::string>& argv, const Environment& env) {
  for (const auto& [name, value] : env) setenv(name.c_str(), value.c_str(), 1);
  std::vector<char*> args = Pointers(argv);
  execv(args[0], args.data());
  _exit(127);
}

int Redirect(const std::string& path, int fd) {
  const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  return file < 0 ? -1 : dup2(file, fd);
}

}  // namespace

std::string MakeWorkFolder() {
  const char* base = std::getenv("TMPDIR");
  std::string pattern =
      std::string(base != nullptr && *base != '\0' ? base : "/tmp") + "/qrx-bench.XXXXXX";
  return mkdtemp(pattern.data()) != nullptr ? pattern : "";
}

TimedRun RunTimed(const std::vector<std::string>& argv, const Environment& env,
                  const std::string& outFile, const std::string& errFile) {
  return FinishTimed(StartTimed(argv, env, outFile, errFile));
}

TimedChild StartTimed(const std::vector<std::string>& argv, const Environment& env,
                      const std::string& outFile, const std::string& errFile) {
  std::vector<std::string> launcher = {"/proc/self/exe", kTimedRunFlag, outFile, errFile};
  launcher.insert(launcher.end(), argv.begin(), argv.end());
  int report[2];
  if (pipe2(report, O_CLOEXEC) != 0) return {};
  const pid_t pid = fork();
  if (pid == 0) {
    dup2(report[1], STDOUT_FILENO);
    Exec(launcher, env);
  }
  close(report[1]);
  return {pid, report[0]};
}

TimedRun FinishTimed(const TimedChild& child) {
  if (child.report < 0) return {};
  std::string text;
  char chunk[128];
  for (ssize_t n; (n = read(child.report, chunk, sizeof chunk)) > 0;) text.append(chunk, n);
  close(child.report);
  int status = 0;
  if (child.pid > 0) waitpid(child.pid, &status, 0);
  TimedRun run;
  long long wall = 0;
  long long peak = 0;
  long long cpu = 0;
  if (std::sscanf(text.c_str(), "%d %lld %lld %lld", &run.exitStatus, &wall, &peak, &cpu) != 4) {
    return {};
  }
  run.wallNs = wall;
  run.peakRssKiB = peak;
  run.cpuNs = cpu;
  return run;
}

int TimedRunMain(int argc, char** argv) {
  if (argc < 5) return 2;
  const std::vector<std::string> program(argv + 4, argv + argc);
  const int64_t start = NowNs();
  const pid_t pid = fork();
  if (pid < 0) return 1;
  if (pid == 0) {
    if (Redirect(argv[2], STDOUT_FILENO) < 0 || Redirect(argv[3], STDERR_FILENO) < 0) _exit(126);
    Exec(program, {});
  }
  int status = 0;
  rusage usage{};
  while (wait4(pid, &status, 0, &usage) < 0) {
  }
  const int64_t wall = NowNs() - start;
  auto ns = [](const timeval& t) {
    return static_cast<long long>(t.tv_sec) * 1000000000LL + t.tv_usec * 1000LL;
  };
  std::printf("%d %lld %lld %lld\n", WIFEXITED(status) ? WEXITSTATUS(status) : -1,
              static_cast<long long>(wall), static_cast<long long>(usage.ru_maxrss),
              ns(usage.ru_utime) + ns(usage.ru_stime));
  return 0;
}

}  // namespace qrx::bench
