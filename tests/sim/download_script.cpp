#include "download_script.h"

namespace qrx::test {

Bytes Command(uint16_t opcode, std::initializer_list<uint8_t> params) {
  Bytes command(params);
  command.insert(command.begin(), {static_cast<uint8_t>(opcode), static_cast<uint8_t>(opcode >> 8),
                                   static_cast<uint8_t>(params.size())});
  return command;
}

sim::Controller WithFault(const char* rule) {
  std::string error;
  sim::FaultPlan plan;
  plan.Add(sim::ParseFaultSpec(rule, &error).value());
  return sim::Controller(sim::ConfigForProfile(sim::Profile::kTlvBoot), plan);
}

}  // namespace qrx::test
