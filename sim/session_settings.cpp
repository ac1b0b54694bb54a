#include "session_settings.h"

#include "sim_options.h"

namespace qrx::sim {

Controller NewSessionController(const SessionSettings& settings) {
  Controller controller(settings.controller, MakeFaultPlan(settings.faults));
  if (settings.log) {
    CommandLog* log = settings.log;
    controller.SetCommandObserver([log](std::span<const uint8_t> command) { log->Write(command); });
  }
  return controller;
}

}  // namespace qrx::sim
