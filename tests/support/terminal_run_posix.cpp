#include "support/terminal_run_posix.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <chrono>

namespace qrx::test {

namespace {

// Reads what is there; false at end of data (or, on a terminal whose far
// side closed, the EIO that stands for it).
bool Drain(int fd, std::string& into) {
  char buffer[4096];
  const ssize_t got = read(fd, buffer, sizeof buffer);
  if (got <= 0) return false;
  into.append(buffer, static_cast<size_t>(got));
  return true;
}

}  // namespace

ProcessResult RunWithTerminalStderr(const std::vector<std::string>& argv, const Environment& env,
                                    int timeoutMs) {
  ProcessResult result;
  const int master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
  if (master < 0 || grantpt(master) != 0 || unlockpt(master) != 0) return result;
  const int slave = open(ptsname(master), O_RDWR | O_NOCTTY | O_CLOEXEC);
  int out[2] = {-1, -1};
  if (slave < 0 || pipe2(out, O_CLOEXEC) != 0) {
    close(master);
    return result;
  }
  termios raw{};
  tcgetattr(slave, &raw);
  cfmakeraw(&raw);
  tcsetattr(slave, TCSANOW, &raw);

  std::vector<std::string> texts = argv;
  std::vector<std::string> envTexts;
  for (const auto& [name, value] : env) envTexts.push_back(name + "=" + value);
  for (char** entry = environ; *entry != nullptr; ++entry) envTexts.push_back(*entry);
  std::vector<char*> args;
  for (std::string& text : texts) args.push_back(text.data());
  args.push_back(nullptr);
  std::vector<char*> envs;
  for (std::string& text : envTexts) envs.push_back(text.data());
  envs.push_back(nullptr);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, out[1], 1);
  posix_spawn_file_actions_adddup2(&actions, slave, 2);
  pid_t pid = -1;
  const bool started = posix_spawn(&pid, args[0], &actions, nullptr, args.data(), envs.data()) == 0;
  posix_spawn_file_actions_destroy(&actions);
  close(out[1]);
  close(slave);

  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
  bool errOpen = started;
  bool outOpen = started;
  while ((errOpen || outOpen) && std::chrono::steady_clock::now() < deadline) {
    pollfd fds[2] = {{master, POLLIN, 0}, {out[0], POLLIN, 0}};
    if (poll(fds, 2, 100) <= 0) continue;
    if (errOpen && fds[0].revents != 0) errOpen = Drain(master, result.err);
    if (outOpen && fds[1].revents != 0) outOpen = Drain(out[0], result.out);
  }
  if (started) {
    if (errOpen || outOpen) kill(pid, SIGKILL);
    int status = 0;
    waitpid(pid, &status, 0);
    if (!errOpen && !outOpen && WIFEXITED(status)) result.exitStatus = WEXITSTATUS(status);
  }
  close(out[0]);
  close(master);
  return result;
}

}  // namespace qrx::test
