#pragma once

#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <string>
#include <vector>

#include "fwlib/fragment_iterators.h"
#include "fwlib/fwlib_classify.h"
#include "fwlib/fwlib_context.h"
#include "image/fw_image.h"
#include "support/scoped_env.h"
#include "support/temp_dir.h"

namespace qrx::test {

using Bytes = std::vector<uint8_t>;

struct ContextRelease {
  void operator()(FwLibContext* context) const { FwLibRelease(context); }
};
using ContextPtr = std::unique_ptr<FwLibContext, ContextRelease>;

// Packed fields are compared by value; gtest would bind references to them.
template <typename T>
T Get(T value) {
  return value;
}

inline ContextPtr Classified(const Bytes& answer) {
  FwLibContext* context = nullptr;
  EXPECT_EQ(FwLibClassify(answer.data(), static_cast<uint8_t>(answer.size()), &context), 0u);
  return ContextPtr(context);
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

// A context over an image the test holds, as a loader leaves it: position 0,
// stage 0, a long version answer carrying the signature scheme.
struct ImageContext {
  explicit ImageContext(Bytes bytes, uint8_t isOperational = 0, uint8_t isTlvForm = 0,
                        uint8_t scheme = 0)
      : image(std::move(bytes)) {
    version[kSignatureSchemeIndex] = scheme;
    context = {.magic = kFwLibContextMagic,
               .versionData = version.data(),
               .versionLength = static_cast<uint8_t>(version.size()),
               .isTlvForm = isTlvForm,
               .imageBorrowed = 1,
               .isOperational = isOperational,
               .imageSize = static_cast<uint32_t>(image.size()),
               .signatureStage = 0,
               .imageOffset = 0,
               .imageData = image.data(),
               .imageBuffer = image.data()};
  }
  ImageContext(const ImageContext&) = delete;

  Bytes image;
  std::array<uint8_t, kTlvBootloaderVersionLength> version{};
  FwLibContext context{};
};

// Every command an iterator hands out, and the first status other than 0.
struct Walk {
  std::vector<Bytes> commands;
  FwLibStatus end = kFwLibSuccess;
};
inline Walk WalkAll(FwLibContext& context, uint32_t capacity = 258) {
  Walk walk;
  std::array<uint8_t, 300> buffer{};
  for (;;) {
    uint32_t length = capacity;
    walk.end = GetNextCommand(&context, buffer.data(), &length);
    if (walk.end != kFwLibSuccess) {
      EXPECT_EQ(length, walk.end == kFwLibImageExhausted ? capacity : 0u);
      return walk;
    }
    walk.commands.emplace_back(buffer.begin(), buffer.begin() + length);
  }
}

// A container of these entries. An entry without an image gets i + 1 bytes
// of 0xC0 + i (i its index), so a found entry's size names it.
struct Entry {
  uint8_t kind;
  Bytes key;
  Bytes image = {};
};
inline Bytes Container(const std::vector<Entry>& rows) {
  std::vector<fwimage::FwdatEntrySpec> entries(rows.size());
  for (size_t i = 0; i < rows.size(); ++i) {
    entries[i].kindByte = rows[i].kind;
    entries[i].matchKey = fwimage::MatchKey(rows[i].key);
    entries[i].image = rows[i].image;
    if (rows[i].image.empty()) entries[i].image = Bytes(i + 1, static_cast<uint8_t>(0xC0 + i));
  }
  return fwimage::BuildFwdat(entries);
}

// Drive C is a fresh temporary directory for each test.
class DriveFixture : public ::testing::Test {
 protected:
  const std::string kOwnHostFolder = "Program Files/Norix/Bluetooth/";
  TempDir drive_;
  ScopedEnv driveC_{"QRXBPL_DRIVE_C", drive_.Path()};
};

}  // namespace qrx::test
