// The program from its command line on: the long options and the design's
// option parser, then a whole run over a fake serial line or server socket
// whose far end plays the input's bytes, with the firmware file in memory.
// Whatever the controller says, a serial line that was switched must end at
// 115200.
#include <cstdint>
#include <cstdlib>

#include "fake_world.h"
#include "platform/console.h"
#include "platform/trace.h"
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

  qrx::fuzz::RunProgram(input.arguments);
  const qrx::fuzz::FakeLineState& line = qrx::fuzz::SerialLine();
  if (line.open) std::abort();  // the run left the port open
  if (line.appliedRate != 0 && line.appliedRate != kLineRestRate) std::abort();
  return 0;
}
