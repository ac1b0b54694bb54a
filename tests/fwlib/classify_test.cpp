#include <gtest/gtest.h>

#include <algorithm>

#include "fwlib/fwlib_classify.h"
#include "fwlib/image_key.h"
#include "fwlib_fixture.h"

namespace qrx::test {
namespace {

struct ClassifyCase {
  const char* name;
  Bytes answer;
  FwLibStatus status;
  bool created;
  uint8_t isTlvForm;
  uint8_t isOperational;
};

TEST(Classify, AcceptsEachLengthOnlyInItsMode) {
  const ClassifyCase cases[] = {
      {"legacy bootloader", LegacyAnswer(0x37, 10, 6, 0), 0, true, 0, 0},
      {"legacy operational", LegacyAnswer(0x37, 10, 5, 0), 0, true, 0, 1},
      {"90 bootloader", TlvAnswer(90, 1), 0, true, 1, 0},
      {"90 operational", TlvAnswer(90, 0), 12, false, 0, 0},
      {"80 bootloader", TlvAnswer(80, 1), 12, false, 0, 0},
      {"80 operational", TlvAnswer(80, 3), 0, true, 1, 1},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    auto* sentinel = reinterpret_cast<FwLibContext*>(0x10);
    FwLibContext* raw = sentinel;
    ASSERT_EQ(FwLibClassify(c.answer.data(), static_cast<uint8_t>(c.answer.size()), &raw),
              c.status);
    ContextPtr context(raw);
    if (!c.created) {
      EXPECT_EQ(raw, nullptr);
      continue;
    }
    ASSERT_NE(raw, nullptr);
    EXPECT_EQ(Get(context->magic), kFwLibContextMagic);
    EXPECT_EQ(Get(context->isTlvForm), c.isTlvForm);
    EXPECT_EQ(Get(context->isOperational), c.isOperational);
    EXPECT_EQ(Get(context->versionLength), c.answer.size());
    const uint8_t* copy = context->versionData;
    EXPECT_NE(copy, c.answer.data());
    EXPECT_TRUE(std::equal(c.answer.begin(), c.answer.end(), copy));
  }
}

TEST(Classify, OtherLengthsCreateNothingAndInitialiseRefusesThem) {
  const Bytes odd(10, 0);
  auto* sentinel = reinterpret_cast<FwLibContext*>(0x10);
  FwLibContext* raw = sentinel;
  EXPECT_EQ(FwLibClassify(odd.data(), 10, &raw), 0u);
  EXPECT_EQ(raw, sentinel);
  EXPECT_EQ(FwLibClassify(odd.data(), 0, &raw), 2u);
  EXPECT_EQ(FwLibClassify(nullptr, 9, &raw), 2u);

  raw = sentinel;
  EXPECT_EQ(FwLibInitialize(odd.data(), 10, 1, &raw), 12u);
  EXPECT_EQ(raw, nullptr);
  EXPECT_EQ(FwLibInitialize(nullptr, 9, 1, &raw), 2u);
  EXPECT_EQ(FwLibInitialize(odd.data(), 9, 1, nullptr), 2u);
  const Bytes operational90 = TlvAnswer(90, 0);
  raw = sentinel;
  EXPECT_EQ(FwLibInitialize(operational90.data(), 90, 1, &raw), 12u);
  EXPECT_EQ(raw, nullptr);
}

TEST(Classify, StandAloneTestsReadTheirOwnPosition) {
  using Test = FwLibStatus (*)(const uint8_t*, uint8_t*);
  struct Case {
    Test test;
    size_t position;
    uint8_t setting;
    uint8_t clearing;
  };
  const Case cases[] = {
      {FwLibIsBootloaderLegacy, 3, 6, 1},
      {FwLibIsBootloaderTlvBoot, 36, 1, 0},
      {FwLibIsBootloaderTlvOp, 42, 1, 3},
      {FwLibIsLegacyRom, 1, 10, 11},
  };
  for (const auto& c : cases) {
    Bytes answer(90, 0);
    uint8_t flag = 7;
    answer[c.position] = c.setting;
    EXPECT_EQ(c.test(answer.data(), &flag), 0u);
    EXPECT_EQ(flag, 1) << c.position;
    answer[c.position] = c.clearing;
    EXPECT_EQ(c.test(answer.data(), &flag), 0u);
    EXPECT_EQ(flag, 0) << c.position;
    EXPECT_EQ(c.test(nullptr, &flag), 2u);
    EXPECT_EQ(c.test(answer.data(), nullptr), 2u);
  }
}

TEST(ImageKey, TakesIdentityAndKeyFieldsFromTheModesLayout) {
  Bytes boot = TlvAnswer(90, 1);
  boot[2] = 0x34, boot[3] = 0x12, boot[5] = 0xA7;  // word A 0x1234, byte A 0xA7
  boot[8] = 0xFF, boot[9] = 0xFF, boot[11] = 0x05;
  FwImageKey key{};
  ASSERT_EQ(FwLibBuildImageKey(Classified(boot).get(), &key), 0u);
  EXPECT_EQ(key, (FwImageKey{0x47, 0x23, 0xF5, 0xFF, 1, boot[39], boot[40], boot[43], boot[46],
                             boot[47], boot[48], boot[49]}));

  const Bytes op = TlvAnswer(80, 2);
  ASSERT_EQ(FwLibBuildImageKey(Classified(op).get(), &key), 0u);
  EXPECT_EQ(key[4], 2);
  EXPECT_EQ(Bytes(key.begin() + 5, key.end()),
            (Bytes{op[45], op[46], op[49], op[52], op[53], op[54], op[55]}));

  // A legacy answer ends inside word B: what lies past its end reads as zero.
  const Bytes legacy = LegacyAnswer(0x20, 10, 6, 7);
  ASSERT_EQ(FwLibBuildImageKey(Classified(legacy).get(), &key), 0u);
  EXPECT_EQ(key, (FwImageKey{0x32, 0x60, 0x70, 0x00, 0, 0, 0, 0, 0, 0, 0, 0}));

  FwLibContext foreign{};
  EXPECT_EQ(FwLibBuildImageKey(&foreign, &key), 2u);
  EXPECT_EQ(FwLibBuildImageKey(Classified(boot).get(), nullptr), 2u);
}

TEST(PatchLevel, ComparesThePatchAfterTheFirstCommand) {
  struct Case {
    const char* name;
    Bytes image;
    uint8_t controllerPatch;
    FwLibStatus status;
    uint8_t current;
    uint8_t otherLoaded;
  };
  // Opcode, length 2, two parameters, then the image's patch number.
  const Case cases[] = {
      {"same patch", {0x01, 0xFC, 2, 0xAA, 0xBB, 4}, 4, 0, 1, 0},
      {"older image", {0x01, 0xFC, 2, 0xAA, 0xBB, 3}, 4, 0, 1, 0},
      {"newer over none", {0x01, 0xFC, 2, 0xAA, 0xBB, 5}, 0, 0, 0, 0},
      {"newer over another", {0x01, 0xFC, 2, 0xAA, 0xBB, 5}, 2, 0, 0, 1},
      {"nothing after the command", {0x01, 0xFC, 2, 0xAA, 0xBB}, 0, 12, 9, 9},
      {"command past the end", {0x01, 0xFC, 200, 0xAA, 0xBB, 1}, 0, 12, 9, 9},
      {"shorter than four", {0x01, 0xFC, 0}, 0, 12, 9, 9},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    ContextPtr context = Classified(LegacyAnswer(0x37, 10, 6, c.controllerPatch));
    context->imageData = c.image.data();
    context->imageSize = static_cast<uint32_t>(c.image.size());
    uint8_t current = 9;
    uint8_t otherLoaded = 9;
    EXPECT_EQ(FwLibCheckPatchLevel(context.get(), &current, &otherLoaded), c.status);
    EXPECT_EQ(current, c.current);
    EXPECT_EQ(otherLoaded, c.otherLoaded);
  }
  ContextPtr context = Classified(LegacyAnswer(0x37, 10, 6, 0));
  uint8_t current = 0;
  uint8_t otherLoaded = 0;
  context->imageData = reinterpret_cast<const uint8_t*>(~uintptr_t{0});
  context->imageSize = 64;
  EXPECT_EQ(FwLibCheckPatchLevel(context.get(), &current, &otherLoaded), 12u);
  context->imageOffset = 61;
  EXPECT_EQ(FwLibCheckPatchLevel(context.get(), &current, &otherLoaded), 12u);
  EXPECT_EQ(FwLibCheckPatchLevel(context.get(), nullptr, &otherLoaded), 2u);
}

TEST(Release, RefusesWhatIsNotALiveContextAndKeepsBorrowedImages) {
  EXPECT_EQ(FwLibRelease(nullptr), 2u);
  // A released record carries tag 0; a second release sees that and stops.
  FwLibContext released{};
  EXPECT_EQ(FwLibRelease(&released), 2u);
  released.magic = kFwLibContextMagic ^ 1;
  EXPECT_EQ(FwLibRelease(&released), 2u);

  // A borrowed buffer must survive the release (freeing it would be caught
  // as a bad or double free).
  Bytes borrowed = {1, 2, 3, 4};
  ContextPtr context = Classified(LegacyAnswer(0x37, 10, 6, 0));
  context->imageBuffer = borrowed.data();
  context->imageData = borrowed.data();
  context->imageSize = 4;
  context->imageBorrowed = 1;
  EXPECT_EQ(FwLibRelease(context.release()), 0u);
  EXPECT_EQ(borrowed, (Bytes{1, 2, 3, 4}));
}

TEST(Lookup, NeverFindsALoadedContainer) {
  FwLibContext* raw = nullptr;
  const Bytes boot90 = TlvAnswer(90, 1);
  EXPECT_EQ(FwLibInitialize(boot90.data(), 90, 0, &raw), 14u);
  EXPECT_EQ(raw, nullptr);

  // The legacy form drops the failure: a modern part ends with no image, a
  // ROM-patched one fails its patch check for want of one.
  const Bytes modern = LegacyAnswer(0x37, 11, 6, 0);
  ASSERT_EQ(FwLibInitialize(modern.data(), 9, 0, &raw), 0u);
  ContextPtr context(raw);
  EXPECT_EQ(Get(context->imageSize), 0u);
  EXPECT_EQ(Get(context->imageData), nullptr);
  const Bytes rom = LegacyAnswer(0x37, 10, 6, 0);
  EXPECT_EQ(FwLibInitialize(rom.data(), 9, 0, &raw), 12u);
  EXPECT_EQ(raw, nullptr);

  context->isOperational = 3;
  EXPECT_EQ(FwLibLookupImage(context.get()), 2u);
  EXPECT_EQ(FwLibLookupImage(nullptr), 2u);
}

}  // namespace
}  // namespace qrx::test
