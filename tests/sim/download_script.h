#pragma once

// Test-side scripts: HCI commands as bytes and a model with one fault.

#include <cstdint>
#include <initializer_list>
#include <vector>

#include "model/controller.h"
#include "support/secure_sends.h"

namespace qrx::test {

using Bytes = std::vector<uint8_t>;

// Opcode, parameter length, parameters.
Bytes Command(uint16_t opcode, std::initializer_list<uint8_t> params);

// A TLV bootloader that commits one fault; a rule that does not parse fails the test.
sim::Controller WithFault(const char* rule);

}  // namespace qrx::test
