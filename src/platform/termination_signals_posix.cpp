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
// the state the interrupted code was in does not matter. That holds for the
// faults too: the release reads only its lock-free slots, so a crash (or an
// abort) in the middle of the run's own code still gives the line back.
constexpr std::array<int, 9> kTerminationSignals = {SIGINT,  SIGTERM, SIGHUP, SIGQUIT, SIGABRT,
                                                    SIGSEGV, SIGBUS,  SIGFPE, SIGILL};

// A stack of its own for the handler, so a fault from a stack that has run out
// still gets its link released.
constexpr size_t kHandlerStackBytes = 64 * 1024;
alignas(16) std::array<char, kHandlerStackBytes> g_handlerStack;
bool g_handlerStackSet = false;

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
  if (!g_handlerStackSet) {
    stack_t stack{};
    stack.ss_sp = g_handlerStack.data();
    stack.ss_size = g_handlerStack.size();
    g_handlerStackSet = sigaltstack(&stack, nullptr) == 0;
  }
  for (size_t i = 0; i < kTerminationSignals.size(); ++i) {
    Previous& previous = g_previous[i];
    if (previous.caught) continue;
    if (sigaction(kTerminationSignals[i], nullptr, &previous.action) != 0) continue;
    if (previous.action.sa_handler == SIG_IGN) continue;
    struct sigaction action {};
    action.sa_handler = OnTerminationSignal;
    sigemptyset(&action.sa_mask);
    // Not deferred while the handler runs, so a second request gets through.
    action.sa_flags = SA_NODEFER | (g_handlerStackSet ? SA_ONSTACK : 0);
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

// Why ignored rather than caught: a broken pipe is the console's trouble, not
// the link's. Ended by it, the process would leave the download half done and
// no report; ignored, each console write fails like any failed write (the
// design does not look at what printing returns), the run finishes and its
// clean-up restores the line as on any other ending. Sockets never raise it
// (their sends ask not to).
void IgnoreBrokenPipes() {
  struct sigaction action {};
  action.sa_handler = SIG_IGN;
  sigemptyset(&action.sa_mask);
  sigaction(SIGPIPE, &action, nullptr);
}

}  // namespace qrx
