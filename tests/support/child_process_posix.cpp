#include "child_process_posix.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <thread>
#include <utility>

extern char** environ;

namespace qrx::test {

namespace {

using Clock = std::chrono::steady_clock;

int MsUntil(Clock::time_point deadline) {
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
  return left.count() > 0 ? static_cast<int>(left.count()) : 0;
}

std::vector<std::string> MergedEnvironment(const Environment& extra) {
  std::vector<std::string> merged;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string text = *entry;
    bool overridden = false;
    for (const auto& [name, value] : extra) overridden |= text.rfind(name + "=", 0) == 0;
    if (!overridden) merged.push_back(text);
  }
  for (const auto& [name, value] : extra) merged.push_back(name + "=" + value);
  return merged;
}

std::vector<char*> Pointers(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

// Standard input is /dev/null; output and error go where the caller says.
int Spawn(const std::vector<std::string>& argv, const Environment& env, int outFd, int errFd) {
  std::vector<std::string> args = argv;
  std::vector<std::string> envTexts = MergedEnvironment(env);
  std::vector<char*> argPointers = Pointers(args);
  std::vector<char*> envPointers = Pointers(envTexts);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, outFd, 1);
  posix_spawn_file_actions_adddup2(&actions, errFd, 2);
  pid_t pid = -1;
  const int rc =
      posix_spawn(&pid, argPointers[0], &actions, nullptr, argPointers.data(), envPointers.data());
  posix_spawn_file_actions_destroy(&actions);
  return rc == 0 ? pid : -1;
}

int ExitStatusOf(int waitStatus) {
  return WIFEXITED(waitStatus) ? WEXITSTATUS(waitStatus) : -1;
}

}  // namespace

std::string BuildProduct(const std::string& relative) {
  const char* dir = std::getenv("QRX_BUILD_DIR");
  return std::string(dir ? dir : ".") + "/" + relative;
}

ChildProcess::~ChildProcess() {
  if (pid_ > 0 && !reaped_) {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  if (out_ >= 0) close(out_);
}

bool ChildProcess::Start(const std::string& program, const std::vector<std::string>& args) {
  int pipeFds[2];
  if (pipe2(pipeFds, O_CLOEXEC) != 0) return false;
  std::vector<std::string> argv = {program};
  argv.insert(argv.end(), args.begin(), args.end());
  pid_ = Spawn(argv, {}, pipeFds[1], STDERR_FILENO);
  close(pipeFds[1]);
  out_ = pipeFds[0];
  return pid_ > 0;
}

bool ChildProcess::ReadMore(Clock::time_point deadline) {
  pollfd entry{out_, POLLIN, 0};
  if (out_ < 0 || poll(&entry, 1, MsUntil(deadline)) <= 0) return false;
  char buffer[512];
  const ssize_t count = read(out_, buffer, sizeof(buffer));
  if (count <= 0) return false;
  pending_.append(buffer, static_cast<size_t>(count));
  return true;
}

std::optional<std::string> ChildProcess::ReadLine(int timeoutMs) {
  const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
  size_t end;
  while ((end = pending_.find('\n')) == std::string::npos) {
    if (!ReadMore(deadline)) return std::nullopt;
  }
  std::string line = pending_.substr(0, end);
  pending_.erase(0, end + 1);
  return line;
}

std::string ChildProcess::ReadAll(int timeoutMs) {
  const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
  while (ReadMore(deadline)) {
  }
  return std::exchange(pending_, {});
}

int ChildProcess::WaitExit(int timeoutMs) {
  const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
  while (!reaped_ && pid_ > 0) {
    int status = 0;
    if (waitpid(pid_, &status, WNOHANG) == pid_) {
      reaped_ = true;
      status_ = ExitStatusOf(status);
      break;
    }
    if (Clock::now() >= deadline) return -1;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return status_;
}

void ChildProcess::Terminate() {
  if (pid_ > 0 && !reaped_) kill(pid_, SIGTERM);
}

ProcessResult RunProcess(const std::vector<std::string>& argv, const Environment& env,
                         int timeoutMs) {
  ProcessResult result;
  int outPipe[2];
  int errPipe[2];
  if (pipe2(outPipe, O_CLOEXEC) != 0) return result;
  if (pipe2(errPipe, O_CLOEXEC) != 0) {
    close(outPipe[0]);
    close(outPipe[1]);
    return result;
  }
  const int pid = Spawn(argv, env, outPipe[1], errPipe[1]);
  close(outPipe[1]);
  close(errPipe[1]);

  const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
  bool killed = false;
  pollfd fds[2] = {{outPipe[0], POLLIN, 0}, {errPipe[0], POLLIN, 0}};
  std::string* sinks[2] = {&result.out, &result.err};
  int openStreams = pid > 0 ? 2 : 0;
  while (openStreams > 0) {
    if (MsUntil(deadline) == 0 && !killed) {
      kill(pid, SIGKILL);
      killed = true;
    }
    if (poll(fds, 2, killed ? 1000 : MsUntil(deadline)) <= 0 && killed) break;
    for (int i = 0; i < 2; ++i) {
      if (fds[i].fd < 0 || (fds[i].revents & (POLLIN | POLLHUP)) == 0) continue;
      char chunk[4096];
      const ssize_t n = read(fds[i].fd, chunk, sizeof chunk);
      if (n > 0) {
        sinks[i]->append(chunk, static_cast<size_t>(n));
      } else {
        fds[i].fd = -1;
        --openStreams;
      }
    }
  }
  close(outPipe[0]);
  close(errPipe[0]);
  if (pid > 0) {
    int status = 0;
    waitpid(pid, &status, 0);
    result.exitStatus = killed ? -1 : ExitStatusOf(status);
  }
  return result;
}

}  // namespace qrx::test
