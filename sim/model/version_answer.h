#pragma once

// The Read Version answer in its three layouts: the 9-byte legacy record and
// the two type-length-value forms (90 bytes from the bootloader, 80 bytes
// from operational firmware). The long forms are real item runs whose items
// come in a fixed order, so the values the loader reads at fixed positions
// land where it looks.

#include <cstddef>
#include <cstdint>
#include <vector>

#include "model/controller_config.h"

namespace qrx::sim {

constexpr size_t kLegacyAnswerSize = 9;
constexpr size_t kBootAnswerSize = 90;
constexpr size_t kOperationalAnswerSize = 80;

// Where the loader reads (answer positions, after the status byte).
constexpr size_t kBootImageTypeAt = 36;
constexpr size_t kBootKeyWordAt = 39;
constexpr size_t kBootKeyByteAt = 43;
constexpr size_t kBootKeyDwordAt = 46;
constexpr size_t kOpImageTypeAt = 42;
constexpr size_t kOpKeyWordAt = 45;
constexpr size_t kOpKeyByteAt = 49;
constexpr size_t kOpKeyDwordAt = 52;
constexpr size_t kIdWordAAt = 2;
constexpr size_t kIdByteAAt = 5;
constexpr size_t kIdWordBAt = 8;
constexpr size_t kIdByteBAt = 11;
constexpr size_t kSignatureSchemeAt = 78;
constexpr size_t kLegacyFwVariantAt = 3;

// patchNumber is the patch level the controller reports now (it changes when
// a download completes).
std::vector<uint8_t> BuildVersionAnswer(const ControllerConfig& config, bool bootloader,
                                        uint8_t patchNumber);

// The key a firmware container is searched with for this answer: the legacy
// answer itself, or the 12-byte image key built from a long answer.
std::vector<uint8_t> ImageKeyOf(const std::vector<uint8_t>& answer);

}  // namespace qrx::sim
