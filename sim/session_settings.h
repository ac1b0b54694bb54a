#pragma once

// What every session of a front starts from: a freshly powered controller as
// configured, its own copy of the fault plan, and the shared command log.

#include <vector>

#include "command_log.h"
#include "model/controller.h"
#include "model/controller_config.h"
#include "model/fault_plan.h"

namespace qrx::sim {

struct SessionSettings {
  ControllerConfig controller;
  std::vector<FaultSpec> faults;
  CommandLog* log = nullptr;
  bool once = false;
  bool delayedAck = false;  // TCP: acknowledge as an ordinary server does
  bool paced = false;       // pty: no faster than the line rate
  uint32_t latencyMs = 0;   // pty, paced: fixed delay each way
};

Controller NewSessionController(const SessionSettings& settings);

}  // namespace qrx::sim
