#include "download_script.h"

#include "image/fw_image.h"

namespace qrx::test {

Bytes Command(uint16_t opcode, std::initializer_list<uint8_t> params) {
  Bytes command(params);
  command.insert(command.begin(), {static_cast<uint8_t>(opcode), static_cast<uint8_t>(opcode >> 8),
                                   static_cast<uint8_t>(params.size())});
  return command;
}

std::vector<Bytes> SecureSendCommands(std::span<const uint8_t> image, uint8_t scheme) {
  using namespace fwimage;
  std::vector<Bytes> out;
  const auto fragment = [&](uint8_t type, size_t at, size_t size) {
    Bytes command = {0x09, 0xFC, static_cast<uint8_t>(size + 1), type};
    command.insert(command.end(), image.begin() + at, image.begin() + at + size);
    out.push_back(command);
  };
  size_t body = kFirstBlockSize;
  if (scheme == 0) {
    fragment(0, 0, 128);
    fragment(3, 128, 252);
    fragment(3, 380, 4);
    fragment(2, 388, 252);
    fragment(2, 640, 4);
  } else {
    fragment(0, 644, 128);
    fragment(3, 772, 96);
    fragment(2, 868, 96);
    body += kSecondBlockSize;
  }
  while (body < image.size()) {
    size_t total = 0;
    do {
      total += 3 + image[body + total + 2];
    } while (total % 4 != 0);
    fragment(1, body, total);
    body += total;
  }
  return out;
}

sim::Controller WithFault(const char* spec) {
  std::string error;
  sim::FaultPlan plan;
  plan.Add(sim::ParseFaultSpec(spec, &error).value());
  return sim::Controller(sim::ConfigForProfile(sim::Profile::kTlvBoot), plan);
}

std::vector<Sent> Exchange(sim::Controller& controller, std::span<const uint8_t> command) {
  Bytes h4 = {0x01};
  h4.insert(h4.end(), command.begin(), command.end());
  controller.Receive(h4);
  std::vector<Sent> sent;
  while (auto packet = controller.PopOutput()) sent.push_back({packet->bytes, packet->delivery});
  return sent;
}

}  // namespace qrx::test
