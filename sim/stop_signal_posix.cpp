#include "stop_signal_posix.h"

#include <csignal>

namespace qrx::sim {

namespace {
std::atomic<bool>* g_stopFlag = nullptr;

void OnStopSignal(int) {
  if (g_stopFlag) g_stopFlag->store(true);
}
}  // namespace

void InstallStopSignals(std::atomic<bool>* flag) {
  static_assert(std::atomic<bool>::is_always_lock_free);
  g_stopFlag = flag;
  struct sigaction action {};
  action.sa_handler = OnStopSignal;
  sigemptyset(&action.sa_mask);
  sigaction(SIGTERM, &action, nullptr);
  sigaction(SIGINT, &action, nullptr);
  std::signal(SIGPIPE, SIG_IGN);
}

}  // namespace qrx::sim
