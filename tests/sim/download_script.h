#pragma once

// Test-side scripts: HCI commands as bytes, a signed image cut into the
// Secure Send commands a host sends for it, and a model with one fault.

#include <cstdint>
#include <initializer_list>
#include <span>
#include <vector>

#include "model/controller.h"

namespace qrx::test {

using Bytes = std::vector<uint8_t>;

// Opcode, parameter length, parameters.
Bytes Command(uint16_t opcode, std::initializer_list<uint8_t> params);

// The Secure Send commands for a signed image: the first block (scheme 0,
// SFI layout only) or the second (scheme 1, two-block layout), then the body
// in groups of whole commands that close on 4-byte multiples.
std::vector<Bytes> SecureSendCommands(std::span<const uint8_t> image, uint8_t scheme);

// A TLV bootloader that commits one fault; a rule that does not parse fails the test.
sim::Controller WithFault(const char* rule);

}  // namespace qrx::test
