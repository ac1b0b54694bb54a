#include "model/hci_packets.h"

#include <algorithm>

namespace qrx::sim {

std::vector<uint8_t> CommandComplete(uint16_t opcode, uint8_t status,
                                     const std::vector<uint8_t>& returnParams) {
  constexpr size_t kFixed = 7;
  std::vector<uint8_t> event(kFixed + returnParams.size(), 0);
  event[0] = kH4Event;
  event[kEventCodeIndex] = kEventCommandComplete;
  event[kEventLengthIndex] = static_cast<uint8_t>(4 + returnParams.size());
  event[3] = kCommandCredits;
  event[kCompleteOpcodeIndex] = static_cast<uint8_t>(opcode);
  event[kCompleteOpcodeIndex + 1] = static_cast<uint8_t>(opcode >> 8);
  event[kCompleteStatusIndex] = status;
  std::copy(returnParams.begin(), returnParams.end(), event.begin() + kFixed);
  return event;
}

std::vector<uint8_t> VendorEvent(uint8_t id, uint8_t status) {
  return {kH4Event, kEventVendor, 2, id, status};
}

std::vector<uint8_t> ReadyEvent() {
  return {kH4Event,
          kEventCommandComplete,
          3,
          kCommandCredits,
          static_cast<uint8_t>(kOpNoOperation),
          static_cast<uint8_t>(kOpNoOperation >> 8)};
}

}  // namespace qrx::sim
