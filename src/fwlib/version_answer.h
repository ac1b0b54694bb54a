#pragma once

#include <cstddef>
#include <cstdint>

#include "fwlib/fwlib_context.h"

namespace qrx {

// Where the library reads the Read Version answer. The long forms are read
// at fixed positions, not walked item by item: correct only for answers
// whose items come in the controller's fixed order, as designed.

// Legacy 9-byte form.
constexpr size_t kLegacyPlatformAt = 0;
constexpr size_t kLegacyHardwareVariantAt = 1;
constexpr size_t kLegacyFirmwareVariantAt = 3;
constexpr size_t kLegacyPatchNumberAt = 8;
constexpr uint8_t kLegacyBootloaderVariant = 6;
constexpr uint8_t kFirstModernHardwareVariant = 11;  // below: ROM-patched parts
constexpr size_t kVersionNameBytes = 8;              // bytes 0..7 name the file

// Long (TLV) forms, both layouts.
constexpr size_t kTlvFirstTypeAt = 0;
constexpr size_t kTlvIdentityWordAAt = 2;
constexpr size_t kTlvIdentityByteAAt = 5;
constexpr size_t kTlvIdentityWordBAt = 8;
constexpr size_t kTlvIdentityByteBAt = 11;
constexpr uint8_t kTlvImageTypeBootloader = 1;

struct TlvKeyPositions {
  size_t imageType;
  size_t keyWord;
  size_t keyByte;
  size_t keyDword;
};
constexpr TlvKeyPositions kTlvBootloaderPositions = {36, 39, 43, 46};   // 90-byte answer
constexpr TlvKeyPositions kTlvOperationalPositions = {42, 45, 49, 52};  // 80-byte answer

// Byte at position of the context's answer copy; positions past the end
// read as 0, so the fixed positions of the long forms never reach past a
// shorter answer.
inline uint8_t AnswerByte(const FwLibContext& context, size_t position) {
  const uint8_t* data = context.versionData;
  return (data != nullptr && position < context.versionLength) ? data[position] : 0;
}

}  // namespace qrx
