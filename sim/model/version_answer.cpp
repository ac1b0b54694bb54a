#include "model/version_answer.h"

#include <array>
#include <span>

#include "platform/byte_order.h"

namespace qrx::sim {

namespace {

// What an item's value holds.
enum class Source : uint8_t {
  kIdentityA,      // word A, reserved byte, byte A
  kIdentityB,      // word B, reserved byte, byte B
  kHardwareInfo,   // platform, hardware variant, hardware revision, firmware variant
  kBuildInfo,      // firmware revision, build number, week, year, patch, zero fill
  kFirmwareState,  // running-firmware state; never 1, the bootloader's image type
  kImageType,
  kKeyWord,
  kKeyByte,
  kKeyDword,
  kSecurity,  // signature scheme, secure boot on/off
  kReserved,  // zero fill
};

struct Item {
  uint8_t type;  // 0: the configured first item type
  uint8_t length;
  Source source;
};

constexpr uint8_t kFirstItem = 0;
constexpr uint8_t kFirmwareRunning = 0x03;

constexpr std::array<Item, 11> kBootItems = {{
    {kFirstItem, 4, Source::kIdentityA},
    {0x11, 4, Source::kIdentityB},
    {0x12, 4, Source::kHardwareInfo},
    {0x13, 14, Source::kBuildInfo},
    {0x1C, 1, Source::kImageType},
    {0x1D, 2, Source::kKeyWord},
    {0x1E, 1, Source::kKeyByte},
    {0x1F, 4, Source::kKeyDword},
    {0x20, 24, Source::kReserved},
    {0x2A, 2, Source::kSecurity},
    {0x30, 8, Source::kReserved},
}};

constexpr std::array<Item, 11> kOperationalItems = {{
    {kFirstItem, 4, Source::kIdentityA},
    {0x11, 4, Source::kIdentityB},
    {0x12, 4, Source::kHardwareInfo},
    {0x13, 14, Source::kBuildInfo},
    {0x14, 4, Source::kFirmwareState},
    {0x1C, 1, Source::kImageType},
    {0x1D, 2, Source::kKeyWord},
    {0x1E, 1, Source::kKeyByte},
    {0x1F, 4, Source::kKeyDword},
    {0x20, 18, Source::kReserved},
    {0x2A, 2, Source::kSecurity},
}};

template <size_t N>
constexpr size_t TotalSize(const std::array<Item, N>& items) {
  size_t total = 0;
  for (const Item& item : items) total += 2 + item.length;
  return total;
}

// Position of the value of the first item fed from source.
template <size_t N>
constexpr size_t ValueAt(const std::array<Item, N>& items, Source source) {
  size_t at = 0;
  for (const Item& item : items) {
    if (item.source == source) return at + 2;
    at += 2 + item.length;
  }
  return 0;
}

static_assert(TotalSize(kBootItems) == kBootAnswerSize);
static_assert(ValueAt(kBootItems, Source::kIdentityA) == kIdWordAAt);
static_assert(ValueAt(kBootItems, Source::kIdentityB) == kIdWordBAt);
static_assert(ValueAt(kBootItems, Source::kImageType) == kBootImageTypeAt);
static_assert(ValueAt(kBootItems, Source::kKeyWord) == kBootKeyWordAt);
static_assert(ValueAt(kBootItems, Source::kKeyByte) == kBootKeyByteAt);
static_assert(ValueAt(kBootItems, Source::kKeyDword) == kBootKeyDwordAt);
static_assert(ValueAt(kBootItems, Source::kSecurity) == kSignatureSchemeAt);
static_assert(TotalSize(kOperationalItems) == kOperationalAnswerSize);
static_assert(ValueAt(kOperationalItems, Source::kIdentityA) == kIdWordAAt);
static_assert(ValueAt(kOperationalItems, Source::kIdentityB) == kIdWordBAt);
static_assert(ValueAt(kOperationalItems, Source::kFirmwareState) == kBootImageTypeAt);
static_assert(ValueAt(kOperationalItems, Source::kImageType) == kOpImageTypeAt);
static_assert(ValueAt(kOperationalItems, Source::kKeyWord) == kOpKeyWordAt);
static_assert(ValueAt(kOperationalItems, Source::kKeyByte) == kOpKeyByteAt);
static_assert(ValueAt(kOperationalItems, Source::kKeyDword) == kOpKeyDwordAt);
static_assert(ValueAt(kOperationalItems, Source::kSecurity) == kSignatureSchemeAt);

void FillValue(std::span<uint8_t> value, Source source, const ControllerConfig& config,
               bool bootloader, uint8_t patchNumber) {
  switch (source) {
    case Source::kIdentityA:
      WriteLe16(value, 0, config.idWordA);
      value[3] = config.idByteA;
      break;
    case Source::kIdentityB:
      WriteLe16(value, 0, config.idWordB);
      value[3] = config.idByteB;
      break;
    case Source::kHardwareInfo:
      value[0] = config.platform;
      value[1] = config.hwVariant;
      value[2] = config.hwRevision;
      value[3] = bootloader ? kBootloaderFwVariant : config.fwVariant;
      break;
    case Source::kBuildInfo:
      value[0] = config.fwRevision;
      value[1] = config.buildNumber;
      value[2] = config.buildWeek;
      value[3] = config.buildYear;
      value[4] = patchNumber;
      break;
    case Source::kFirmwareState:
      value[0] = kFirmwareRunning;
      break;
    case Source::kImageType:
      value[0] = bootloader ? config.bootImageType : config.opImageType;
      break;
    case Source::kKeyWord:
      WriteLe16(value, 0, config.keyWord);
      break;
    case Source::kKeyByte:
      value[0] = config.keyByte;
      break;
    case Source::kKeyDword:
      WriteLe32(value, 0, config.keyDword);
      break;
    case Source::kSecurity:
      value[0] = config.signatureScheme;
      value[1] = config.secureBoot ? 1 : 0;
      break;
    case Source::kReserved:
      break;
  }
}

template <size_t N>
std::vector<uint8_t> BuildItems(const std::array<Item, N>& items, const ControllerConfig& config,
                                bool bootloader, uint8_t patchNumber) {
  std::vector<uint8_t> answer(TotalSize(items), 0);
  size_t at = 0;
  for (const Item& item : items) {
    answer[at] = item.type == kFirstItem ? config.firstItemType : item.type;
    answer[at + 1] = item.length;
    FillValue(std::span<uint8_t>(answer).subspan(at + 2, item.length), item.source, config,
              bootloader, patchNumber);
    at += 2 + item.length;
  }
  return answer;
}

}  // namespace

std::vector<uint8_t> BuildVersionAnswer(const ControllerConfig& config, bool bootloader,
                                        uint8_t patchNumber) {
  if (config.form == AnswerForm::kLegacy) {
    return {config.platform,   config.hwVariant,
            config.hwRevision, bootloader ? kBootloaderFwVariant : config.fwVariant,
            config.fwRevision, config.buildNumber,
            config.buildWeek,  config.buildYear,
            patchNumber};
  }
  return bootloader ? BuildItems(kBootItems, config, bootloader, patchNumber)
                    : BuildItems(kOperationalItems, config, bootloader, patchNumber);
}

std::vector<uint8_t> ImageKeyOf(const std::vector<uint8_t>& answer) {
  if (answer.size() != kBootAnswerSize && answer.size() != kOperationalAnswerSize) return answer;
  const bool boot = answer.size() == kBootAnswerSize;
  const auto identity = [&](size_t wordAt, size_t byteAt) {
    return static_cast<uint16_t>((ReadLe16(answer, wordAt) << 4) | (answer[byteAt] & 0x0F));
  };
  std::vector<uint8_t> key(12, 0);
  WriteLe16(key, 0, identity(kIdWordAAt, kIdByteAAt));
  WriteLe16(key, 2, identity(kIdWordBAt, kIdByteBAt));
  key[4] = answer[boot ? kBootImageTypeAt : kOpImageTypeAt];
  const size_t wordAt = boot ? kBootKeyWordAt : kOpKeyWordAt;
  key[5] = answer[wordAt];
  key[6] = answer[wordAt + 1];
  key[7] = answer[boot ? kBootKeyByteAt : kOpKeyByteAt];
  const size_t dwordAt = boot ? kBootKeyDwordAt : kOpKeyDwordAt;
  for (size_t i = 0; i < 4; ++i) key[8 + i] = answer[dwordAt + i];
  return key;
}

}  // namespace qrx::sim
