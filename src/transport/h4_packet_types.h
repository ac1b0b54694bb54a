#pragma once

#include <cstdint>

namespace qrx {

// Packet-type indicators of the UART (H4) transport: the byte in front of
// every packet on the serial line, and in front of every TCP command frame.
constexpr uint8_t kH4Command = 0x01;
constexpr uint8_t kH4AclData = 0x02;
constexpr uint8_t kH4ScoData = 0x03;
constexpr uint8_t kH4Event = 0x04;

}  // namespace qrx
