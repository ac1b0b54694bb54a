// qrxvps: the simulated controller, served over TCP or a pseudo-terminal.

#include <atomic>
#include <cstdio>
#include <string>

#include "command_log.h"
#include "model/version_answer.h"
#include "platform/console.h"
#include "session_settings.h"
#include "sim_options.h"
#include "stop_signal_posix.h"
#include "tcp_front.h"
#include "uart_front.h"

namespace {

constexpr int kExitUsage = 2;
constexpr int kExitFailure = 1;

void PrintKey(const qrx::sim::ControllerConfig& config) {
  const auto answer = qrx::sim::BuildVersionAnswer(config, true, config.patchNumber);
  std::string hex;
  for (uint8_t byte : qrx::sim::ImageKeyOf(answer)) {
    char pair[3];
    std::snprintf(pair, sizeof(pair), "%02x", byte);
    hex += pair;
  }
  qrx::StdoutPrintf("%s\n", hex.c_str());
}

}  // namespace

int main(int argc, char** argv) {
  using namespace qrx::sim;
  SimOptions options;
  std::string error;
  if (!ParseSimOptions(argc, argv, &options, &error)) {
    qrx::ConsolePrintf("qrxvps: %s\nTry 'qrxvps --help'.\n", error.c_str());
    return kExitUsage;
  }
  if (options.help) {
    qrx::StdoutPrintf("%s", SimHelpText().c_str());
    return 0;
  }
  if (options.version) {
    qrx::StdoutPrintf("qrxvps %s\n", QRX_VERSION);
    return 0;
  }
  if (options.printKey) {
    PrintKey(options.controller);
    return 0;
  }

  CommandLog log;
  if (!options.logPath.empty() && !log.Open(options.logPath)) {
    qrx::ConsolePrintf("qrxvps: cannot write %s\n", options.logPath.c_str());
    return kExitFailure;
  }
  SessionSettings settings{
      options.controller, options.faults,     options.logPath.empty() ? nullptr : &log,
      options.once,       options.delayedAck, options.paced,
      options.latencyMs};
  std::atomic<bool> stop{false};
  InstallStopSignals(&stop);

  if (options.front == Front::kTcp) {
    TcpFront front;
    if (!front.Listen(options.bindAddress, options.port, &error)) {
      qrx::ConsolePrintf("qrxvps: %s\n", error.c_str());
      return kExitFailure;
    }
    qrx::StdoutPrintf("qrxvps: listening on %s:%u\n", options.bindAddress.c_str(),
                      static_cast<unsigned>(front.Port()));
    qrx::StdoutFlush();
    return front.Serve(settings, stop);
  }

  PtyLine line;
  if (!line.Open(&error)) {
    qrx::ConsolePrintf("qrxvps: %s\n", error.c_str());
    return kExitFailure;
  }
  qrx::StdoutPrintf("qrxvps: pty %s\n", line.SlavePath().c_str());
  qrx::StdoutFlush();
  return settings.paced ? ServePacedUart(line, settings, stop) : ServeUart(line, settings, stop);
}
