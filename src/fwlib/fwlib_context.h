#pragma once

#include <cstdint>

#include "fwlib/fwlib_status.h"

namespace qrx {

constexpr uint32_t kFwLibContextMagic = 0xFABFF73F;

// Version answer lengths the library accepts.
constexpr uint8_t kLegacyVersionLength = 9;
constexpr uint8_t kTlvOperationalVersionLength = 80;
constexpr uint8_t kTlvBootloaderVersionLength = 90;

// The library's record for one controller. Byte-packed, as designed: read
// fields by value, never take the address of one (it may be misaligned).
#pragma pack(push, 1)
struct FwLibContext {
  uint32_t magic;
  uint8_t* versionData;  // owned copy of the Read Version answer
  uint8_t versionLength;
  uint8_t isTlvForm;
  uint8_t imageBorrowed;
  uint8_t isOperational;
  uint32_t imageSize;
  uint8_t signatureStage;
  uint32_t imageOffset;
  const uint8_t* imageData;  // next unconsumed byte
  uint8_t* imageBuffer;
};
#pragma pack(pop)

// Creates a context from the answer, classifies the controller and (search
// flag 1) finds and loads its firmware. Statuses 6 and 15 come with a live
// context that the caller must release.
FwLibStatus FwLibInitialize(const uint8_t* answer, uint8_t answerLength, uint8_t searchFiles,
                            FwLibContext** result);
FwLibStatus FwLibRelease(FwLibContext* context);

}  // namespace qrx
