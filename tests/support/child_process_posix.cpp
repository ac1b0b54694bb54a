#include "child_process_posix.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <thread>
#include <utility>

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

int RunProgram(const std::string& program, const std::vector<std::string>& args, std::string* out,
               int timeoutMs) {
  ChildProcess child;
  if (!child.Start(program, args)) return -1;
  std::string text = child.ReadAll(timeoutMs);
  if (out) *out = std::move(text);
  return child.WaitExit(timeoutMs);
}

}  // namespace qrx::test
