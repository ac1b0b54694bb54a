#include "app/firmware_check.h"
#include "app/long_options.h"
#include "app/options.h"
#include "app/port_listing.h"
#include "app/run_driver.h"
#include "app/run_report.h"
#include "platform/btsnoop.h"
#include "platform/console.h"
#include "platform/error_text.h"
#include "platform/exit_status.h"
#include "platform/termination_signals.h"
#include "platform/trace.h"
#include "run/run_options.h"

namespace {

// The capture starts before the first packet; a file that cannot be created
// stops the process before anything else happens.
bool StartCapture() {
  const char* path = qrx::g_runOptions.btsnoopPath;
  if (path == nullptr) return true;
  const int error = qrx::BtsnoopOpen(path);
  if (error == 0) return true;
  qrx::ConsolePrintf("qrxbpl: cannot write the capture %s: %s\n", path,
                     qrx::SystemErrorText(error));
  return false;
}

bool Run(int argc, char** argv) {
  if (!qrx::ParseCommandLine(argc, argv)) return false;
  // A named file that cannot be right is refused before the link opens.
  if (!qrx::CheckNamedFirmwareFile()) return false;
  const bool succeeded = qrx::RunDownload();
  qrx::RunReportRunEnded(succeeded);  // a finished download printed its timing table
  return succeeded;
}

}  // namespace

int main(int argc, char** argv) {
  qrx::ConsoleStart();
  qrx::TraceProviderRegister();
  int exitStatus = qrx::kExitFailure;
  switch (qrx::ParseLongOptions(argc, argv)) {
    case qrx::LongOptionResult::kHelp:
      qrx::PrintUsageOnStdout();
      qrx::PrintLongOptionsOnStdout();
      exitStatus = qrx::kExitSuccess;
      break;
    case qrx::LongOptionResult::kVersion:
      qrx::PrintBannerOnStdout();
      exitStatus = qrx::kExitSuccess;
      break;
    case qrx::LongOptionResult::kListPorts:
      if (qrx::PrintSerialPortsOnStdout()) exitStatus = qrx::kExitSuccess;
      break;
    case qrx::LongOptionResult::kFailed:
      break;
    case qrx::LongOptionResult::kRun:
      qrx::IgnoreBrokenPipes();
      // Both output files are known good before the link opens.
      if (!qrx::RunReportBegin(argc, argv)) break;
      if (StartCapture() && Run(argc, argv)) exitStatus = qrx::kExitSuccess;
      qrx::BtsnoopClose();
      qrx::RunReportWrite(exitStatus);
      break;
  }
  qrx::TraceProviderUnregister();
  return exitStatus;
}
