#include "model/controller.h"

#include <gtest/gtest.h>

#include "download_script.h"
#include "image/fw_image.h"
#include "model/version_answer.h"
#include "platform/byte_order.h"

namespace qrx::sim {
namespace {

using test::Bytes;
using test::Command;

// Sends one command (H4 byte in front) and collects every packet it caused.
std::vector<Bytes> Exchange(Controller& controller, const Bytes& command) {
  Bytes h4 = {0x01};
  h4.insert(h4.end(), command.begin(), command.end());
  controller.Receive(h4);
  std::vector<Bytes> packets;
  while (auto packet = controller.PopOutput()) packets.push_back(packet->bytes);
  return packets;
}

Bytes Answer(const Bytes& event) {
  return Bytes(event.begin() + 7, event.end());
}

const Bytes kReadVersion = Command(0xFC05, {0xFF});
const Bytes kToBootloader = Command(0xFC01, {1, 0, 0, 0, 0, 0, 0, 0});
const Bytes kBootAddressReset = Command(0xFC01, {0, 0, 0, 1, 0x00, 0x80, 0x00, 0x00});
const Bytes kResetComplete = {0x04, 0x0E, 0x04, 0x01, 0x01, 0xFC, 0x00};
const Bytes kReady = {0x04, 0x0E, 0x03, 0x01, 0x00, 0x00};

TEST(Controller, VersionAnswerLayoutsPerProfile) {
  struct Case {
    Profile profile;
    uint8_t paramLength;
    size_t imageTypeAt, keyWordAt, keyByteAt, keyDwordAt;
  };
  const Case cases[] = {
      {Profile::kLegacyBoot, 13, 0, 0, 0, 0},
      {Profile::kLegacyOp, 13, 0, 0, 0, 0},
      {Profile::kTlvBoot, 94, 36, 39, 43, 46},
      {Profile::kTlvOp, 84, 42, 45, 49, 52},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(static_cast<int>(c.profile));
    ControllerConfig config = ConfigForProfile(c.profile);
    config.signatureScheme = 1;
    Controller controller(config);
    const auto packets = Exchange(controller, kReadVersion);
    ASSERT_EQ(packets.size(), 1u);
    const Bytes& event = packets[0];
    EXPECT_EQ(Bytes(event.begin(), event.begin() + 7),
              (Bytes{0x04, 0x0E, c.paramLength, 0x01, 0x05, 0xFC, 0x00}));
    const Bytes answer = Answer(event);
    ASSERT_EQ(answer.size(), c.paramLength - 4u);
    if (config.form == AnswerForm::kLegacy) {
      EXPECT_EQ(answer[3], config.startInBootloader ? 6 : config.fwVariant);
      EXPECT_EQ(answer[1], config.hwVariant);
      continue;
    }
    // A real item run: the items tile the answer exactly.
    size_t at = 0;
    while (at < answer.size()) at += 2 + answer[at + 1];
    EXPECT_EQ(at, answer.size());
    EXPECT_EQ(answer[0], config.firstItemType);
    EXPECT_EQ(ReadLe16(answer, 2), config.idWordA);
    EXPECT_EQ(answer[5], config.idByteA);
    EXPECT_EQ(ReadLe16(answer, 8), config.idWordB);
    EXPECT_EQ(answer[11], config.idByteB);
    EXPECT_EQ(answer[c.imageTypeAt],
              config.startInBootloader ? config.bootImageType : config.opImageType);
    EXPECT_EQ(ReadLe16(answer, c.keyWordAt), config.keyWord);
    EXPECT_EQ(answer[c.keyByteAt], config.keyByte);
    EXPECT_EQ(ReadLe32(answer, c.keyDwordAt), config.keyDword);
    EXPECT_EQ(answer[78], 1);
    EXPECT_NE(answer[36] == 1, !config.startInBootloader);
  }
}

TEST(Controller, ImageKeyFollowsTheLoadersRule) {
  ControllerConfig config = ConfigForProfile(Profile::kTlvBoot);
  config.idWordA = 0x1234;
  config.idByteA = 0xA7;
  const Bytes key = ImageKeyOf(BuildVersionAnswer(config, true, 0));
  ASSERT_EQ(key.size(), 12u);
  EXPECT_EQ(key[0], 0x47);
  EXPECT_EQ(key[1], 0x23);
  EXPECT_EQ(key[4], config.bootImageType);
  EXPECT_EQ(ReadLe32(key, 8), config.keyDword);
}

TEST(Controller, ResetsMoveBetweenBootloaderAndOperational) {
  for (const Profile profile : {Profile::kLegacyOp, Profile::kTlvOp}) {
    ControllerConfig config = ConfigForProfile(profile);
    Controller controller(config);
    EXPECT_FALSE(controller.InBootloader());
    // A reset without a completed download leaves an operational part alone...
    EXPECT_EQ(Exchange(controller, kBootAddressReset),
              (std::vector<Bytes>{kResetComplete, kReady}));
    EXPECT_FALSE(controller.InBootloader());
    // ...and the to-bootloader form brings up the bootloader's answer.
    EXPECT_EQ(Exchange(controller, kToBootloader), (std::vector<Bytes>{kResetComplete, kReady}));
    const Bytes answer = Answer(Exchange(controller, kReadVersion)[0]);
    if (config.form == AnswerForm::kLegacy) {
      EXPECT_EQ(answer[kLegacyFwVariantAt], kBootloaderFwVariant);
    } else {
      EXPECT_EQ(answer.size(), kBootAnswerSize);
      EXPECT_EQ(answer[kBootImageTypeAt], 1);
    }
    // The bootloader stays until a download has completed.
    Exchange(controller, kBootAddressReset);
    EXPECT_TRUE(controller.InBootloader());
  }
}

TEST(Controller, CompletedDownloadBootsTheNewPatch) {
  Controller controller(ConfigForProfile(Profile::kLegacyBoot));
  fwimage::SignedImageSpec spec;
  spec.bodyBytes = 600;
  spec.patchNumber = 7;
  const Bytes image = fwimage::BuildSfiImage(spec);
  std::vector<Bytes> events;
  for (const Bytes& command : test::SecureSendCommands(image, 0)) {
    for (Bytes& event : Exchange(controller, command)) events.push_back(event);
  }
  ASSERT_FALSE(events.empty());
  EXPECT_EQ(events.back(), (Bytes{0x04, 0xFF, 0x02, 0x06, 0x00}));
  EXPECT_EQ(events.size(), test::SecureSendCommands(image, 0).size() + 1);
  Exchange(controller, kBootAddressReset);
  EXPECT_FALSE(controller.InBootloader());
  const Bytes answer = Answer(Exchange(controller, kReadVersion)[0]);
  EXPECT_EQ(answer[8], 7);
  EXPECT_NE(answer[kLegacyFwVariantAt], kBootloaderFwVariant);
}

TEST(Controller, SecureBootParamsReportTheSwitchAtEventByte12) {
  for (const bool on : {true, false}) {
    ControllerConfig config = ConfigForProfile(Profile::kLegacyBoot);
    config.secureBoot = on;
    Controller controller(config);
    const Bytes event = Exchange(controller, Command(0xFC0D, {}))[0];
    EXPECT_EQ(Bytes(event.begin(), event.begin() + 7),
              (Bytes{0x04, 0x0E, 0x0C, 0x01, 0x0D, 0xFC, 0x00}));
    EXPECT_EQ(event[12], on ? 1 : 0);
  }
}

TEST(Controller, SimpleCommandsAndTheirAnswers) {
  Controller controller(ConfigForProfile(Profile::kLegacyOp));
  const Bytes manfComplete = {0x04, 0x0E, 0x04, 0x01, 0x11, 0xFC, 0x00};
  EXPECT_EQ(Exchange(controller, Command(0xFC11, {1, 0})), std::vector<Bytes>{manfComplete});
  EXPECT_TRUE(controller.InManufacturerMode());
  EXPECT_EQ(Exchange(controller, Command(0xFC11, {0, 2})), std::vector<Bytes>{manfComplete});
  EXPECT_FALSE(controller.InManufacturerMode());
  EXPECT_EQ(controller.LastManufacturerExitBits(), 2);
  // Replayed commands: a Command Complete, and for 0x..2F the vendor event too.
  EXPECT_EQ(Exchange(controller, Command(0xFC8E, {1, 2, 3})),
            (std::vector<Bytes>{{0x04, 0x0E, 0x04, 0x01, 0x8E, 0xFC, 0x00}}));
  EXPECT_EQ(Exchange(controller, Command(0xFC2F, {9})),
            (std::vector<Bytes>{{0x04, 0x0E, 0x04, 0x01, 0x2F, 0xFC, 0x00},
                                {0x04, 0xFF, 0x02, 0x19, 0x00}}));
  // Only the DDC write of 03 86 01 01 turns the fragment answers off.
  Exchange(controller, Command(0xFC8B, {3, 0x86, 1, 2}));
  EXPECT_FALSE(controller.FragmentAnswersOff());
  EXPECT_EQ(Exchange(controller, Command(0xFC8B, {3, 0x86, 1, 1})),
            (std::vector<Bytes>{{0x04, 0x0E, 0x04, 0x01, 0x8B, 0xFC, 0x00}}));
  EXPECT_TRUE(controller.FragmentAnswersOff());
}

TEST(Controller, RateCommandsAreSilentAndChangeTheLineRate) {
  Controller controller(ConfigForProfile(Profile::kLegacyBoot));
  EXPECT_EQ(controller.LineRate(), 115200u);
  EXPECT_TRUE(Exchange(controller, Command(0xFC06, {11})).empty());
  EXPECT_EQ(controller.LineRate(), 3000000u);
  EXPECT_TRUE(Exchange(controller, Command(0xFC06, {0x33})).empty());  // unknown code
  EXPECT_EQ(controller.LineRate(), 3000000u);
  EXPECT_TRUE(Exchange(controller, Command(0xFC10, {0, 0, 0xC0, 0xC6, 0x2D, 0x00})).empty());
  EXPECT_EQ(controller.LineRate(), 3000000u);
  Exchange(controller, Command(0xFC10, {0, 0, 0xA0, 0x2E, 0x63, 0x00}));
  EXPECT_EQ(controller.LineRate(), 6500000u);
}

TEST(Controller, ByteStreamMayBeCutAnywhereAndCarryNoise) {
  Bytes stream = {0x00, 0x01};
  stream.insert(stream.end(), kReadVersion.begin(), kReadVersion.end());
  stream.push_back(0x01);
  const Bytes manf = Command(0xFC11, {1, 0});
  stream.insert(stream.end(), manf.begin(), manf.end());
  for (size_t cut = 0; cut <= stream.size(); ++cut) {
    Controller controller(ConfigForProfile(Profile::kTlvBoot));
    std::vector<Bytes> seen;
    controller.SetCommandObserver(
        [&](std::span<const uint8_t> c) { seen.emplace_back(c.begin(), c.end()); });
    controller.Receive(std::span(stream).first(cut));
    controller.Receive(std::span(stream).subspan(cut));
    EXPECT_EQ(seen, (std::vector<Bytes>{kReadVersion, manf})) << cut;
    EXPECT_EQ(controller.DroppedBytes(), 1u);
    EXPECT_EQ(controller.CommandCount(), 2u);
  }
}

}  // namespace
}  // namespace qrx::sim
