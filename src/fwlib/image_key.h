#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "fwlib/fwlib_context.h"

namespace qrx {

// The 12-byte key that names a long-form controller's firmware file and
// finds its entry in a container:
//   0-1  identity word A << 4 | (identity byte A & 0x0F), little-endian
//   2-3  identity word B << 4 | (identity byte B & 0x0F), little-endian
//   4    image type
//   5-6  key word, 7 key byte, 8-11 key dword, as stored in the answer
constexpr size_t kFwImageKeySize = 12;
using FwImageKey = std::array<uint8_t, kFwImageKeySize>;

// Zeroes the key and fills it from the context's answer: bytes 4-11 from
// the operational (80-byte) positions when isOperational is 1, else from the
// bootloader (90-byte) positions. 2 for a null or foreign context or a null
// key, else 0.
FwLibStatus FwLibBuildImageKey(const FwLibContext* context, FwImageKey* key);

}  // namespace qrx
