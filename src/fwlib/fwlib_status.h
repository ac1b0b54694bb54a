#pragma once

#include <cstdint>

namespace qrx {

// Statuses of the firmware update library.
using FwLibStatus = uint32_t;
constexpr FwLibStatus kFwLibSuccess = 0;
constexpr FwLibStatus kFwLibInsufficientBuffer = 1;
constexpr FwLibStatus kFwLibInvalidParameter = 2;
constexpr FwLibStatus kFwLibFailure = 3;
constexpr FwLibStatus kFwLibImageExhausted = 4;
constexpr FwLibStatus kFwLibPatchCurrent = 6;
constexpr FwLibStatus kFwLibControllerFailure = 9;
constexpr FwLibStatus kFwLibNotValidated = 10;
constexpr FwLibStatus kFwLibNoViableFirmware = 11;
constexpr FwLibStatus kFwLibInvalidEvent = 12;
constexpr FwLibStatus kFwLibOutOfMemory = 13;
constexpr FwLibStatus kFwLibIoFailure = 14;
constexpr FwLibStatus kFwLibOtherPatchLoaded = 15;

}  // namespace qrx
