#include <windows.h>

#include <atomic>

#include "platform/termination_signals.h"

namespace qrx {

namespace {

// Ctrl-C, Ctrl-Break and a closed console window reach the process as console
// control events, each on a thread of its own: the release runs there while
// the run may still be blocked in a read, then the process ends with the
// status the system gives an interrupted program.
constexpr UINT kInterruptedExitStatus = 0xC000013A;  // STATUS_CONTROL_C_EXIT

std::atomic<SignalSafeRelease> g_release{nullptr};
std::atomic<bool> g_releasing{false};
bool g_caught = false;

BOOL WINAPI OnConsoleControl(DWORD event) {
  switch (event) {
    case CTRL_C_EVENT:
    case CTRL_BREAK_EVENT:
    case CTRL_CLOSE_EVENT:
      break;
    default:
      return FALSE;  // log-off and shut-down: the system's own handling
  }
  // A second request while the first is being served ends the process at once.
  if (g_releasing.exchange(true)) ExitProcess(kInterruptedExitStatus);
  if (const SignalSafeRelease release = g_release.load(); release != nullptr) release();
  ExitProcess(kInterruptedExitStatus);
}

}  // namespace

void CatchTerminationSignals(SignalSafeRelease release) {
  g_release.store(release);
  if (!g_caught) g_caught = SetConsoleCtrlHandler(OnConsoleControl, TRUE) != FALSE;
}

void RestoreTerminationSignals() {
  if (g_caught) SetConsoleCtrlHandler(OnConsoleControl, FALSE);
  g_caught = false;
  g_release.store(nullptr);
}

// Writes to a closed pipe fail with an error here; no signal ends the process.
void IgnoreBrokenPipes() {}

}  // namespace qrx
