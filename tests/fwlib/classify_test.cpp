#include <gtest/gtest.h>

#include <algorithm>

#include "fwlib/fwlib_classify.h"
#include "fwlib_fixture.h"

namespace qrx::test {
namespace {

TEST(Classify, AcceptsEachLengthOnlyInItsMode) {
  struct Case {
    const char* name;
    Bytes answer;
    FwLibStatus status;  // of the classification; initialising refuses what it does not create
    bool created;
    uint8_t isTlvForm, isOperational;
  };
  const Case cases[] = {
      {"legacy bootloader", LegacyAnswer(10, 6), 0, true, 0, 0},
      {"legacy operational", LegacyAnswer(10, 5), 0, true, 0, 1},
      {"90 bootloader", TlvAnswer(90, 1), 0, true, 1, 0},
      {"90 operational", TlvAnswer(90, 0), 12, false, 0, 0},
      {"80 bootloader", TlvAnswer(80, 1), 12, false, 0, 0},
      {"80 operational", TlvAnswer(80, 3), 0, true, 1, 1},
      {"other length", Bytes(10, 0), 0, false, 0, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const auto length = static_cast<uint8_t>(c.answer.size());
    FwLibContext* raw = nullptr;
    ASSERT_EQ(FwLibClassify(c.answer.data(), length, &raw), c.status);
    ContextPtr context(raw);
    if (!c.created) {
      EXPECT_EQ(raw, nullptr);
      raw = reinterpret_cast<FwLibContext*>(0x10);
      EXPECT_EQ(FwLibInitialize(c.answer.data(), length, 1, &raw), 12u);
      EXPECT_EQ(raw, nullptr);
      continue;
    }
    ASSERT_NE(raw, nullptr);
    EXPECT_EQ(Get(context->isTlvForm), c.isTlvForm);
    EXPECT_EQ(Get(context->isOperational), c.isOperational);
    ASSERT_EQ(Get(context->versionLength), length);
    EXPECT_NE(Get(context->versionData), c.answer.data());
    EXPECT_TRUE(std::equal(c.answer.begin(), c.answer.end(), Get(context->versionData)));
  }
}

// Initialising a legacy ROM part (variant 10) compares the patch after the
// fallback image's first command with the controller's; variant 11 does not.
using PatchLevel = DriveFixture;

TEST_F(PatchLevel, DecidesTheStatusOfInitialising) {
  struct Case {
    const char* name;
    Bytes image;  // opcode, length, parameters, then the image's patch
    uint8_t variant, controllerPatch;
    FwLibStatus status;
  };
  const Case cases[] = {
      {"same patch", {0x01, 0xFC, 2, 0xAA, 0xBB, 4}, 10, 4, 6},
      {"older image", {0x01, 0xFC, 2, 0xAA, 0xBB, 3}, 10, 4, 6},
      {"newer over none", {0x01, 0xFC, 2, 0xAA, 0xBB, 5}, 10, 0, 0},
      {"newer over another", {0x01, 0xFC, 2, 0xAA, 0xBB, 5}, 10, 2, 15},
      {"modern part", {0x01, 0xFC, 2, 0xAA, 0xBB, 4}, 11, 4, 0},
      {"nothing after the command", {0x01, 0xFC, 2, 0xAA, 0xBB}, 10, 0, 12},
      {"command past the end", {0x01, 0xFC, 200, 0xAA, 0xBB, 1}, 10, 0, 12},
      {"shorter than four", {0x01, 0xFC, 0}, 10, 0, 12},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    drive_.WriteFile(kOwnHostFolder + "Fw.sfi", c.image);
    const Bytes answer = LegacyAnswer(c.variant, 6, c.controllerPatch);
    FwLibContext* raw = nullptr;
    EXPECT_EQ(FwLibInitialize(answer.data(), 9, 1, &raw), c.status);
    // 6 and 15 hand back a live context too.
    EXPECT_EQ(raw != nullptr, c.status != 12);
    FwLibRelease(raw);
  }
}

}  // namespace
}  // namespace qrx::test
