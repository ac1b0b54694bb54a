#include "app/long_options.h"
#include "app/options.h"
#include "app/run_driver.h"
#include "platform/trace.h"

namespace {
constexpr int kExitSuccess = 0;
constexpr int kExitFailure = 255;  // the design's -1 as a process exit status
}  // namespace

int main(int argc, char** argv) {
  qrx::TraceProviderRegister();
  const bool succeeded = qrx::ParseLongOptions(argc, argv) == qrx::LongOptionResult::kRun &&
                         qrx::ParseCommandLine(argc, argv) && qrx::RunDownload();
  qrx::TraceProviderUnregister();
  return succeeded ? kExitSuccess : kExitFailure;
}
