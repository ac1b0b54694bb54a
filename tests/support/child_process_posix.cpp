#include "child_process_posix.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <thread>

namespace qrx::test {

namespace {

using Clock = std::chrono::steady_clock;

std::vector<char*> Pointers(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

void CloseFd(int& fd) {
  if (fd >= 0) close(fd);
  fd = -1;
}

}  // namespace

std::string BuildProduct(const std::string& relative) {
  const char* dir = std::getenv("QRX_BUILD_DIR");
  return std::string(dir ? dir : ".") + "/" + relative;
}

ChildProcess::~ChildProcess() {
  if (pid_ > 0) {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  for (int& fd : pipes_) CloseFd(fd);
}

// Standard input is /dev/null.
bool ChildProcess::Spawn(std::vector<std::string> argv, const Environment& env, ErrTo err) {
  // A name's first entry is the one read, so the extra variables go in front.
  std::vector<std::string> envTexts;
  for (const auto& [name, value] : env) envTexts.push_back(name + "=" + value);
  for (char** entry = environ; *entry != nullptr; ++entry) envTexts.push_back(*entry);
  int ends[2][2] = {{-1, -1}, {-1, -1}};
  bool piped = pipe2(ends[0], O_CLOEXEC) == 0;
  if (err == ErrTo::kPipe) piped = piped && pipe2(ends[1], O_CLOEXEC) == 0;
  if (err == ErrTo::kTerminal) {
    // Raw, so the bytes arrive as written; once the child is gone a read of
    // the master fails (EIO), which ends the stream as a pipe's end would.
    ends[1][0] = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    piped = piped && ends[1][0] >= 0 && grantpt(ends[1][0]) == 0 && unlockpt(ends[1][0]) == 0 &&
            (ends[1][1] = open(ptsname(ends[1][0]), O_RDWR | O_NOCTTY | O_CLOEXEC)) >= 0;
    termios raw{};
    piped = piped && tcgetattr(ends[1][1], &raw) == 0;
    cfmakeraw(&raw);
    piped = piped && tcsetattr(ends[1][1], TCSANOW, &raw) == 0;
    // A narrow terminal, as a split screen gives: whatever is drawn in place must fit it.
    const winsize narrow{.ws_row = 24, .ws_col = kTerminalColumns, .ws_xpixel = 0, .ws_ypixel = 0};
    piped = piped && ioctl(ends[1][1], TIOCSWINSZ, &narrow) == 0;
  }
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  for (int i = 0; i < 2; ++i) {
    pipes_[i] = ends[i][0];
    if (ends[i][1] >= 0) posix_spawn_file_actions_adddup2(&actions, ends[i][1], i + 1);
  }
  std::vector<char*> args = Pointers(argv);
  std::vector<char*> envs = Pointers(envTexts);
  // The child meets the terminating signals as a shell's foreground job would,
  // whatever this process was started with (a background job ignores SIGINT).
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t defaults;
  sigemptyset(&defaults);
  for (int signalNumber : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&defaults, signalNumber);
  sigset_t none;
  sigemptyset(&none);
  posix_spawnattr_setsigdefault(&attributes, &defaults);
  posix_spawnattr_setsigmask(&attributes, &none);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
  pid_t pid = -1;
  if (piped && posix_spawn(&pid, args[0], &actions, &attributes, args.data(), envs.data()) == 0)
    pid_ = pid;
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&actions);
  for (auto& end : ends) CloseFd(end[1]);
  return pid_ > 0;
}

bool ChildProcess::ReadMore(Clock::time_point deadline) {
  pollfd fds[2] = {{pipes_[0], POLLIN, 0}, {pipes_[1], POLLIN, 0}};  // poll skips closed ones
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
  if ((pipes_[0] < 0 && pipes_[1] < 0) ||
      poll(fds, 2, static_cast<int>(std::max<int64_t>(left.count(), 0))) <= 0)
    return false;
  for (int i = 0; i < 2; ++i) {
    if (fds[i].revents == 0) continue;
    char chunk[4096];
    const ssize_t n = read(pipes_[i], chunk, sizeof chunk);
    if (n > 0) {
      texts_[i].append(chunk, static_cast<size_t>(n));
    } else {
      CloseFd(pipes_[i]);
    }
  }
  return true;
}

std::optional<std::string> ChildProcess::ReadLine(int timeoutMs) {
  const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
  size_t end;
  while ((end = texts_[0].find('\n')) == std::string::npos) {
    if (!ReadMore(deadline)) return std::nullopt;
  }
  std::string line = texts_[0].substr(0, end);
  texts_[0].erase(0, end + 1);
  return line;
}

std::string ChildProcess::ReadAll(int timeoutMs) {
  const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
  while (ReadMore(deadline)) continue;
  return std::exchange(texts_[0], {});
}

int ChildProcess::WaitExit(int timeoutMs) {
  const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
  int status = 0;
  while (pid_ > 0 && waitpid(pid_, &status, WNOHANG) != pid_) {
    if (Clock::now() >= deadline) return -1;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  if (pid_ > 0) {
    status_ = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    endingSignal_ = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
  }
  pid_ = -1;
  return status_;
}

void ChildProcess::Terminate() {
  Signal(SIGTERM);
}

void ChildProcess::Signal(int signalNumber) {
  if (pid_ > 0) kill(pid_, signalNumber);
}

ProcessResult RunProcess(const std::vector<std::string>& argv, const Environment& env,
                         int timeoutMs, ErrTo err) {
  ChildProcess child;
  if (!child.Spawn(argv, env, err)) return {};
  std::string out = child.ReadAll(timeoutMs);
  // Output still open at the deadline: a hang, which the destructor kills.
  const bool ended = child.pipes_[0] < 0 && child.pipes_[1] < 0;
  return {child.WaitExit(ended ? timeoutMs : 0), std::move(out), std::move(child.texts_[1])};
}

}  // namespace qrx::test
