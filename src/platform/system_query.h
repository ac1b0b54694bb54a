#pragma once

#include <cstdint>
#include <string>

namespace qrx {

// Machine-wide settings the library asks the system for.

// A value under the machine's registry key, through the narrow-character
// interface. With data null only the size is answered. False on any failure;
// this platform has no registry, so it always fails.
bool QueryMachineRegistryValue(const char* keyPath, const char* valueName, uint8_t* data,
                               uint32_t* size);

// Whether the process runs as a 32-bit program under emulation on a 64-bit
// system. True when the question could be answered.
bool QueryProcessEmulation(bool* emulated);

// The machine's name on the network, for records; empty when it cannot be read.
std::string QueryHostName();

}  // namespace qrx
