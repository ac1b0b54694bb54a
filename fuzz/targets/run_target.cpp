// The program from its command line on: the long options and the design's
// option parser, then a whole run over a fake serial line or server socket
// whose far end plays the input's bytes, with the firmware file in memory.
// Whatever the controller says, a serial line that was switched must end at
// 115200.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "app/long_options.h"
#include "app/options.h"
#include "app/run_driver.h"
#include "fake_world.h"
#include "platform/console.h"
#include "platform/trace.h"
#include "run/run_options.h"
#include "run_input.h"
#include "trace_into_nothing.h"

namespace {
constexpr uint32_t kLineRestRate = 115200;
}

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  qrx::fuzz::TraceIntoNothing();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const qrx::ConsoleCapture console;  // the console text is kept in memory, unread
  const qrx::fuzz::RunInput input = qrx::fuzz::ReadRunInput(std::span<const uint8_t>(data, size));
  qrx::fuzz::ResetFakeWorld();
  qrx::fuzz::AddFakeFile("", input.firmware);
  qrx::fuzz::QueueStream(qrx::fuzz::SerialPeer(), input.farEnd, input.pieceSize);
  qrx::fuzz::QueueStream(qrx::fuzz::ServerPeer(), input.farEnd, input.pieceSize);

  std::vector<const char*> argv{"qrxbpl"};
  for (const std::string& argument : input.arguments) argv.push_back(argument.c_str());
  const int argc = static_cast<int>(argv.size());
  argv.push_back(nullptr);

  qrx::g_runOptions = qrx::RunOptions{};
  if (qrx::ParseLongOptions(argc, argv.data()) == qrx::LongOptionResult::kRun) {
    // Report and capture files would land on the host's disk.
    qrx::g_runOptions.btsnoopPath = nullptr;
    qrx::g_runOptions.reportPath = nullptr;
    if (qrx::ParseCommandLine(argc, argv.data())) qrx::RunDownload();
  }
  const qrx::fuzz::FakeLineState& line = qrx::fuzz::SerialLine();
  if (line.open) std::abort();  // the run left the port open
  if (line.appliedRate != 0 && line.appliedRate != kLineRestRate) std::abort();
  return 0;
}
