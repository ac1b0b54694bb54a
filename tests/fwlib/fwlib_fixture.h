#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "fwlib/fwlib_classify.h"
#include "fwlib/fwlib_context.h"
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
inline Bytes LegacyAnswer(uint8_t platform, uint8_t hardwareVariant, uint8_t firmwareVariant,
                          uint8_t patch) {
  return {platform, hardwareVariant, 0x03, firmwareVariant, 0x51, 0x22, 0x14, 0x20, patch};
}

// Long answers: identity items first, then the image type and key fields at
// the positions of the 90-byte (bootloader) or 80-byte (operational) layout.
inline Bytes TlvAnswer(size_t length, uint8_t imageType, uint8_t firstType = 0x10) {
  Bytes answer(length, 0);
  for (size_t i = 0; i < length; ++i) answer[i] = static_cast<uint8_t>(0xA0 + i);
  answer[0] = firstType;
  const size_t typeAt = length == 90 ? 36 : 42;
  answer[typeAt] = imageType;
  return answer;
}

// Points drive C at a fresh temporary directory for one test.
class DriveFixture : public ::testing::Test {
 protected:
  void SetUp() override {
    if (const char* old = std::getenv(kDriveVariable)) saved_ = old;
    ::setenv(kDriveVariable, drive_.Path().c_str(), 1);
  }
  void TearDown() override {
    if (saved_) {
      ::setenv(kDriveVariable, saved_->c_str(), 1);
    } else {
      ::unsetenv(kDriveVariable);
    }
  }

  static constexpr const char* kDriveVariable = "QRXBPL_DRIVE_C";
  static constexpr const char* kOwnHostFolder = "Program Files/Norix/Bluetooth/";
  TempDir drive_;

 private:
  std::optional<std::string> saved_;
};

}  // namespace qrx::test
