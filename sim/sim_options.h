#pragma once

// The qrxvps command line.

#include <cstdint>
#include <string>
#include <vector>

#include "model/controller_config.h"
#include "model/fault_plan.h"

namespace qrx::sim {

enum class Front : uint8_t { kTcp, kPty };

constexpr uint16_t kDefaultPort = 12360;

struct SimOptions {
  Front front = Front::kTcp;
  std::string bindAddress = "127.0.0.1";
  uint16_t port = kDefaultPort;
  ControllerConfig controller = ConfigForProfile(Profile::kTlvBoot);
  std::vector<FaultSpec> faults;
  std::string logPath;
  bool once = false;
  bool delayedAck = false;
  bool paced = false;      // pty: bytes no faster than the line rate
  uint32_t latencyMs = 0;  // pty, paced: fixed delay each way
  bool printKey = false;
  bool help = false;
  bool version = false;
};

// Fills *options; on a bad command line returns false with the reason in *error.
bool ParseSimOptions(int argc, const char* const* argv, SimOptions* options, std::string* error);

std::string SimHelpText();

// The fault plan every new session starts from.
FaultPlan MakeFaultPlan(const std::vector<FaultSpec>& faults);

}  // namespace qrx::sim
