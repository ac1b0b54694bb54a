#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "support/process.h"

extern char** environ;

namespace qrx::test {

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
                         std::chrono::milliseconds limit) {
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

  const auto deadline = Clock::now() + limit;
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

BackgroundProcess::BackgroundProcess(const std::vector<std::string>& argv,
                                     const Environment& env) {
  int outPipe[2];
  if (pipe2(outPipe, O_CLOEXEC) != 0) return;
  const int devNull = open("/dev/null", O_WRONLY | O_CLOEXEC);
  pid_ = Spawn(argv, env, outPipe[1], devNull);
  close(devNull);
  close(outPipe[1]);
  outFd_ = outPipe[0];
}

BackgroundProcess::~BackgroundProcess() { Stop(); }

std::string BackgroundProcess::ReadLine(std::chrono::milliseconds limit) {
  const auto deadline = Clock::now() + limit;
  while (outFd_ >= 0) {
    const size_t end = pending_.find('\n');
    if (end != std::string::npos) {
      std::string line = pending_.substr(0, end);
      pending_.erase(0, end + 1);
      return line;
    }
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    pollfd fd = {outFd_, POLLIN, 0};
    if (left.count() <= 0 || poll(&fd, 1, static_cast<int>(left.count())) <= 0) return "";
    char chunk[512];
    const ssize_t n = read(outFd_, chunk, sizeof chunk);
    if (n <= 0) return "";
    pending_.append(chunk, static_cast<size_t>(n));
  }
  return "";
}

int BackgroundProcess::Stop() {
  int exitStatus = -1;
  if (pid_ > 0) {
    kill(pid_, SIGTERM);
    int status = 0;
    const auto deadline = Clock::now() + std::chrono::seconds(5);
    while (waitpid(pid_, &status, WNOHANG) == 0) {
      if (Clock::now() > deadline) {
        kill(pid_, SIGKILL);
        waitpid(pid_, &status, 0);
        break;
      }
      usleep(10000);
    }
    exitStatus = ExitStatusOf(status);
    pid_ = -1;
  }
  if (outFd_ >= 0) {
    close(outFd_);
    outFd_ = -1;
  }
  return exitStatus;
}

std::string BuiltProgram(const std::string& relativePath) {
  const char* buildDir = std::getenv("QRX_BUILD_DIR");
  return std::string(buildDir != nullptr ? buildDir : "build") + "/" + relativePath;
}

}  // namespace qrx::test
