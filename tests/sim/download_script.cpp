#include "download_script.h"

namespace qrx::test {

Bytes Command(uint16_t opcode, std::initializer_list<uint8_t> params) {
  Bytes command(params);
  command.insert(command.begin(), {static_cast<uint8_t>(opcode), static_cast<uint8_t>(opcode >> 8),
                                   static_cast<uint8_t>(params.size())});
  return command;
}

std::vector<Bytes> SecureSendCommands(std::span<const uint8_t> image, uint8_t scheme) {
  struct Piece {
    uint8_t type;
    size_t at, size;
  };
  std::vector<Piece> pieces = {{0, 0, 128}, {3, 128, 252}, {3, 380, 4}, {2, 388, 252}, {2, 640, 4}};
  if (scheme != 0) pieces = {{0, 644, 128}, {3, 772, 96}, {2, 868, 96}};
  size_t at = pieces.back().at + pieces.back().size;
  for (size_t size = 0; at < image.size(); at += size, size = 0) {
    do size += 3 + image[at + size + 2];
    while (size % 4 != 0);
    pieces.push_back({1, at, size});
  }
  std::vector<Bytes> commands;
  for (const auto& [type, from, size] : pieces) {
    commands.push_back({0x09, 0xFC, static_cast<uint8_t>(size + 1), type});
    commands.back().insert(commands.back().end(), image.begin() + from,
                           image.begin() + from + size);
  }
  return commands;
}

sim::Controller WithFault(const char* rule) {
  std::string error;
  sim::FaultPlan plan;
  plan.Add(sim::ParseFaultSpec(rule, &error).value());
  return sim::Controller(sim::ConfigForProfile(sim::Profile::kTlvBoot), plan);
}

}  // namespace qrx::test
