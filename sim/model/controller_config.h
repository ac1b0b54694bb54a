#pragma once

// What the simulated controller is: its answer layout, its identity fields
// and whether it starts in its bootloader. Profiles give ready-made
// controllers; single fields are overridden by name.

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace qrx::sim {

enum class AnswerForm : uint8_t { kLegacy, kTlv };

struct ControllerConfig {
  AnswerForm form = AnswerForm::kTlv;
  bool startInBootloader = true;
  bool secureBoot = true;

  // Legacy record (also reported in the long answers' hardware and build items).
  uint8_t platform = 0x37;
  uint8_t hwVariant = 0x0B;
  uint8_t hwRevision = 0x10;
  uint8_t fwVariant = 0x01;  // the operational firmware's; the bootloader reports 6
  uint8_t fwRevision = 0x01;
  uint8_t buildNumber = 0x20;
  uint8_t buildWeek = 0x0F;
  uint8_t buildYear = 0x14;
  uint8_t patchNumber = 0x00;

  // Long answers.
  uint8_t firstItemType = 0x10;
  uint16_t idWordA = 0x0510;
  uint8_t idByteA = 0x02;
  uint16_t idWordB = 0x0371;
  uint8_t idByteB = 0x01;
  uint8_t bootImageType = 0x01;
  uint8_t opImageType = 0x03;
  uint16_t keyWord = 0x1234;
  uint8_t keyByte = 0x56;
  uint32_t keyDword = 0x9ABCDEF0;
  uint8_t signatureScheme = 0;

  // Reported by Read Secure Boot Params.
  uint32_t bootAddress = 0x8000;
};

constexpr uint8_t kBootloaderFwVariant = 6;

enum class Profile : uint8_t { kLegacyBoot, kLegacyOp, kTlvBoot, kTlvOp };

struct ProfileInfo {
  std::string_view name;
  Profile profile;
  AnswerForm form;
  bool startInBootloader;
};

constexpr std::array<ProfileInfo, 4> kProfiles = {{
    {"legacy-boot", Profile::kLegacyBoot, AnswerForm::kLegacy, true},
    {"legacy-op", Profile::kLegacyOp, AnswerForm::kLegacy, false},
    {"tlv-boot", Profile::kTlvBoot, AnswerForm::kTlv, true},
    {"tlv-op", Profile::kTlvOp, AnswerForm::kTlv, false},
}};

std::optional<Profile> FindProfile(std::string_view name);
ControllerConfig ConfigForProfile(Profile profile);

// Field overrides, "name=value" with a decimal or 0x-prefixed value.
struct FieldInfo {
  std::string_view name;
  uint8_t ControllerConfig::*u8 = nullptr;
  uint16_t ControllerConfig::*u16 = nullptr;
  uint32_t ControllerConfig::*u32 = nullptr;
  std::string_view help;
};

constexpr std::array<FieldInfo, 21> kFields = {{
    {"platform", &ControllerConfig::platform, nullptr, nullptr, "legacy byte 0"},
    {"hw-variant", &ControllerConfig::hwVariant, nullptr, nullptr, "legacy byte 1"},
    {"hw-revision", &ControllerConfig::hwRevision, nullptr, nullptr, "legacy byte 2"},
    {"fw-variant", &ControllerConfig::fwVariant, nullptr, nullptr,
     "legacy byte 3 of the operational firmware"},
    {"fw-revision", &ControllerConfig::fwRevision, nullptr, nullptr, "legacy byte 4"},
    {"build-number", &ControllerConfig::buildNumber, nullptr, nullptr, "legacy byte 5"},
    {"build-week", &ControllerConfig::buildWeek, nullptr, nullptr, "legacy byte 6"},
    {"build-year", &ControllerConfig::buildYear, nullptr, nullptr, "legacy byte 7"},
    {"patch", &ControllerConfig::patchNumber, nullptr, nullptr, "legacy byte 8, patch applied"},
    {"first-item-type", &ControllerConfig::firstItemType, nullptr, nullptr, "long answers, byte 0"},
    {"id-word-a", nullptr, &ControllerConfig::idWordA, nullptr, "long answers, bytes 2-3"},
    {"id-byte-a", &ControllerConfig::idByteA, nullptr, nullptr, "long answers, byte 5"},
    {"id-word-b", nullptr, &ControllerConfig::idWordB, nullptr, "long answers, bytes 8-9"},
    {"id-byte-b", &ControllerConfig::idByteB, nullptr, nullptr, "long answers, byte 11"},
    {"boot-image-type", &ControllerConfig::bootImageType, nullptr, nullptr,
     "90-byte answer, byte 36"},
    {"image-type", &ControllerConfig::opImageType, nullptr, nullptr, "80-byte answer, byte 42"},
    {"key-word", nullptr, &ControllerConfig::keyWord, nullptr, "bytes 39-40 / 45-46"},
    {"key-byte", &ControllerConfig::keyByte, nullptr, nullptr, "byte 43 / 49"},
    {"key-dword", nullptr, nullptr, &ControllerConfig::keyDword, "bytes 46-49 / 52-55"},
    {"sig-scheme", &ControllerConfig::signatureScheme, nullptr, nullptr,
     "byte 78; 0 first block, 1 second block"},
    {"boot-address", nullptr, nullptr, &ControllerConfig::bootAddress,
     "Read Secure Boot Params, bytes 0-3"},
}};

// Applies "name=value"; on failure returns false and says why in *error.
bool ApplyFieldOverride(ControllerConfig& config, std::string_view assignment, std::string* error);

// Numbers on the command line: decimal or 0x-prefixed hexadecimal.
std::optional<uint64_t> ParseNumber(std::string_view text);

}  // namespace qrx::sim
