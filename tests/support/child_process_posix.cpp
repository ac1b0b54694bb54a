#include "child_process_posix.h"

#include <fcntl.h>
#include <spawn.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <thread>
#include <utility>

extern char** environ;

namespace qrx::test {

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

ChildProcess::ChildProcess(ChildProcess&& other) noexcept
    : pid_(other.pid_),
      out_(other.out_),
      pending_(std::move(other.pending_)),
      status_(other.status_),
      reaped_(other.reaped_) {
  other.pid_ = -1;
  other.out_ = -1;
}

bool ChildProcess::Start(const std::string& program, const std::vector<std::string>& args) {
  int pipeFds[2];
  if (pipe2(pipeFds, O_CLOEXEC) != 0) return false;
  std::vector<char*> argv;
  argv.push_back(const_cast<char*>(program.c_str()));
  for (const std::string& arg : args) argv.push_back(const_cast<char*>(arg.c_str()));
  argv.push_back(nullptr);
  const pid_t pid = fork();
  if (pid < 0) {
    close(pipeFds[0]);
    close(pipeFds[1]);
    return false;
  }
  if (pid == 0) {
    dup2(pipeFds[1], STDOUT_FILENO);
    execv(program.c_str(), argv.data());
    _exit(127);
  }
  close(pipeFds[1]);
  pid_ = pid;
  out_ = pipeFds[0];
  return true;
}

std::optional<std::string> ChildProcess::ReadLine(int timeoutMs) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
  while (true) {
    const size_t end = pending_.find('\n');
    if (end != std::string::npos) {
      std::string line = pending_.substr(0, end);
      pending_.erase(0, end + 1);
      return line;
    }
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0 || out_ < 0) return std::nullopt;
    pollfd entry{out_, POLLIN, 0};
    if (poll(&entry, 1, static_cast<int>(left.count())) <= 0) continue;
    char buffer[512];
    const ssize_t count = read(out_, buffer, sizeof(buffer));
    if (count <= 0) return std::nullopt;
    pending_.append(buffer, static_cast<size_t>(count));
  }
}

std::string ChildProcess::ReadAll(int timeoutMs) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
  while (out_ >= 0) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) break;
    pollfd entry{out_, POLLIN, 0};
    if (poll(&entry, 1, static_cast<int>(left.count())) <= 0) continue;
    char buffer[512];
    const ssize_t count = read(out_, buffer, sizeof(buffer));
    if (count <= 0) break;
    pending_.append(buffer, static_cast<size_t>(count));
  }
  return std::exchange(pending_, {});
}

int ChildProcess::WaitExit(int timeoutMs) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
  while (!reaped_ && pid_ > 0) {
    int status = 0;
    const pid_t done = waitpid(pid_, &status, WNOHANG);
    if (done == pid_) {
      reaped_ = true;
      status_ = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
      break;
    }
    if (std::chrono::steady_clock::now() >= deadline) return -1;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return status_;
}

void ChildProcess::Terminate() {
  if (pid_ > 0 && !reaped_) kill(pid_, SIGTERM);
}

bool ChildProcess::Running() {
  if (pid_ <= 0 || reaped_) return false;
  return WaitExit(0) == -1 && !reaped_;
}

namespace {

using Clock = std::chrono::steady_clock;

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
  const int rc = posix_spawn(&pid, argPointers[0], &actions, nullptr, argPointers.data(),
                             envPointers.data());
  posix_spawn_file_actions_destroy(&actions);
  return rc == 0 ? pid : -1;
}

int ExitStatusOf(int waitStatus) {
  return WIFEXITED(waitStatus) ? WEXITSTATUS(waitStatus) : -1;
}

}  // namespace

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
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    if (left.count() <= 0 && !killed) {
      kill(pid, SIGKILL);
      killed = true;
    }
    if (poll(fds, 2, killed ? 1000 : static_cast<int>(left.count())) <= 0 && killed) break;
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
