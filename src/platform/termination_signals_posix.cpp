#include <signal.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <csignal>

#include "platform/termination_signals.h"

namespace qrx {

namespace {

// Why the release happens in the handler itself, rather than by a flag that the
// run notices: the run can be blocked where no flag reaches it (a TCP read
// waits without limit, a rate switch sleeps 300 ms), and unwinding through the
// run's own failure path would print step lines and messages of a failure that
// did not happen. Giving a link back takes a handful of single system calls
// (ioctl, flock, close), each safe inside a handler, and the handler never
// returns: it ends the process by the same signal. Nothing else is touched, so
// the state the interrupted code was in does not matter.
constexpr std::array<int, 3> kTerminationSignals = {SIGINT, SIGTERM, SIGHUP};

static_assert(std::atomic<SignalSafeRelease>::is_always_lock_free);
std::atomic<SignalSafeRelease> g_release{nullptr};
volatile std::sig_atomic_t g_releasing = 0;

struct Previous {
  struct sigaction action {};
  bool caught = false;
};
std::array<Previous, kTerminationSignals.size()> g_previous{};

void SetDefault(int signalNumber) {
  struct sigaction action {};
  action.sa_handler = SIG_DFL;
  sigemptyset(&action.sa_mask);
  sigaction(signalNumber, &action, nullptr);
}

[[noreturn]] void EndBy(int signalNumber) {
  SetDefault(signalNumber);
  sigset_t only;
  sigemptyset(&only);
  sigaddset(&only, signalNumber);
  sigprocmask(SIG_UNBLOCK, &only, nullptr);
  raise(signalNumber);
  _exit(128 + signalNumber);  // only if the signal could not end the process
}

void OnTerminationSignal(int signalNumber) {
  if (g_releasing != 0) EndBy(signalNumber);  // a second request: no more waiting
  g_releasing = 1;
  // From here on any of them ends the process by its default action.
  for (size_t i = 0; i < kTerminationSignals.size(); ++i) {
    if (g_previous[i].caught) SetDefault(kTerminationSignals[i]);
  }
  if (const SignalSafeRelease release = g_release.load(); release != nullptr) release();
  EndBy(signalNumber);
}

}  // namespace

void CatchTerminationSignals(SignalSafeRelease release) {
  g_release.store(release);
  for (size_t i = 0; i < kTerminationSignals.size(); ++i) {
    Previous& previous = g_previous[i];
    if (previous.caught) continue;
    if (sigaction(kTerminationSignals[i], nullptr, &previous.action) != 0) continue;
    if (previous.action.sa_handler == SIG_IGN) continue;
    struct sigaction action {};
    action.sa_handler = OnTerminationSignal;
    sigemptyset(&action.sa_mask);
    // Not deferred while the handler runs, so a second request gets through.
    action.sa_flags = SA_NODEFER;
    previous.caught = sigaction(kTerminationSignals[i], &action, nullptr) == 0;
  }
}

void RestoreTerminationSignals() {
  for (size_t i = 0; i < kTerminationSignals.size(); ++i) {
    Previous& previous = g_previous[i];
    if (!previous.caught) continue;
    sigaction(kTerminationSignals[i], &previous.action, nullptr);
    previous.caught = false;
  }
  g_release.store(nullptr);
}

}  // namespace qrx
