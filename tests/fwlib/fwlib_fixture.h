#pragma once

#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "fwlib/fragment_iterators.h"
#include "fwlib/fwlib_classify.h"
#include "fwlib/fwlib_context.h"
#include "image/fw_image.h"
#include "support/scoped_env.h"
#include "support/temp_dir.h"

namespace qrx::test {

using Bytes = std::vector<uint8_t>;
using ContextPtr = std::unique_ptr<FwLibContext, decltype(&FwLibRelease)>;

// Packed fields are compared by value; gtest would bind references to them.
inline constexpr auto Get = [](auto field) { return field; };

inline ContextPtr Classified(const Bytes& answer) {
  FwLibContext* context = nullptr;
  EXPECT_EQ(FwLibClassify(answer.data(), static_cast<uint8_t>(answer.size()), &context), 0u);
  return ContextPtr(context, FwLibRelease);
}

// Legacy answer: platform, hardware variant, hardware revision, firmware
// variant (6 = bootloader), firmware revision, build number, week, year, patch.
inline Bytes LegacyAnswer(uint8_t hardwareVariant, uint8_t firmwareVariant, uint8_t patch = 0) {
  return {0x37, hardwareVariant, 0x03, firmwareVariant, 0x51, 0x22, 0x14, 0x20, patch};
}

// Long answers: distinct bytes (the first names images by key), and the image type where
// the 90-byte (bootloader) or 80-byte (operational) layout keeps it.
inline Bytes TlvAnswer(size_t length, uint8_t imageType) {
  Bytes answer(length);
  for (size_t i = 0; i < length; ++i) answer[i] = static_cast<uint8_t>(0xA0 + i);
  answer[length == 90 ? 36 : 42] = imageType;
  return answer;
}

// A context over an image the test holds, as a loader leaves it (position 0,
// stage 0), with a long version answer carrying the signature scheme.
struct ImageContext {
  explicit ImageContext(Bytes bytes, uint8_t isOperational = 0, uint8_t isTlvForm = 0,
                        uint8_t scheme = 0)
      : image(std::move(bytes)) {
    version[kSignatureSchemeIndex] = scheme;
    // clang-format off
    context = {.magic = kFwLibContextMagic, .versionData = version.data(),
               .versionLength = kTlvBootloaderVersionLength, .isTlvForm = isTlvForm,
               .imageBorrowed = 1, .isOperational = isOperational,
               .imageSize = static_cast<uint32_t>(image.size()), .signatureStage = 0,
               .imageOffset = 0, .imageData = image.data(), .imageBuffer = image.data()};
    // clang-format on
  }
  ImageContext(const ImageContext&) = delete;

  Bytes image;
  std::array<uint8_t, kTlvBootloaderVersionLength> version{};
  FwLibContext context{};
};

// Every command an iterator hands out, and the first status other than 0.
inline std::pair<std::vector<Bytes>, FwLibStatus> WalkAll(FwLibContext& context,
                                                          uint32_t capacity = 258) {
  std::vector<Bytes> commands;
  std::array<uint8_t, 300> buffer{};
  for (uint32_t length = capacity;; length = capacity) {
    const FwLibStatus status = GetNextCommand(&context, buffer.data(), &length);
    if (status != 0) return {commands, status};
    commands.emplace_back(buffer.data(), buffer.data() + length);
  }
}

// A container of these entries. An entry without an image gets i + 1 bytes
// of 0xC0 + i (i its index), so a found entry's size names it.
struct Entry {
  uint8_t kind;
  Bytes key;
  Bytes image = {};
};
inline Bytes Container(const std::vector<Entry>& rows, const fwimage::FwdatSpec& header = {}) {
  std::vector<fwimage::FwdatEntrySpec> entries(rows.size());
  for (size_t i = 0; i < rows.size(); ++i) {
    entries[i].kindByte = rows[i].kind;
    entries[i].matchKey = fwimage::MatchKey(rows[i].key);
    entries[i].image = rows[i].image;
    if (rows[i].image.empty()) entries[i].image = Bytes(i + 1, static_cast<uint8_t>(0xC0 + i));
  }
  return fwimage::BuildFwdat(entries, header);
}

// Drive C is a fresh temporary directory for each test.
class DriveFixture : public ::testing::Test {
 protected:
  TempDir drive_;
  ScopedEnv driveC_{"QRXBPL_DRIVE_C", drive_.Path()};
};

}  // namespace qrx::test
