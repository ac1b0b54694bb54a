#include "model/controller.h"

#include <gtest/gtest.h>

#include "download_script.h"
#include "image/fw_image.h"
#include "platform/byte_order.h"

namespace qrx::sim {
namespace {

using test::Bytes;
using test::Command;
using test::Exchange;
using test::Sent;
using test::WithFault;
using Script = std::vector<Bytes>;

constexpr fwimage::SignedImageSpec kSpec{.bodyBytes = 1200, .seed = 1, .patchNumber = 7};
const Script kSfi = test::SecureSendCommands(fwimage::BuildSfiImage(kSpec), 0);
const Bytes kReadVersion = Command(0xFC05, {0xFF});
const Bytes kBootAddressReset = Command(0xFC01, {0, 0, 0, 1, 0x00, 0x80, 0x00, 0x00});
const Bytes kDebug = {0x04, 0xFF, 0x02, 0x2A, 0x00};

Sent Complete(uint8_t ocf) {
  return {{0x04, 0x0E, 0x04, 0x01, ocf, 0xFC, 0x00}};
}

struct Outcome {
  size_t confirmed = 0, refused = 0;  // Secure Send answers
  std::vector<uint8_t> completions;   // status of each completion event
};

Outcome Play(Controller& controller, const Script& script) {
  Outcome outcome;
  for (const Bytes& command : script) {
    for (const Sent& sent : Exchange(controller, command)) {
      const Bytes& e = sent.bytes;
      if (e[1] == 0x0E && e[4] == 0x09 && e[5] == 0xFC) {
        ++(e[6] == 0 ? outcome.confirmed : outcome.refused);
      } else if (e[1] == 0xFF && e[3] == 0x06) {
        outcome.completions.push_back(e[4]);
      } else {
        ADD_FAILURE() << "unexpected event";
      }
    }
  }
  return outcome;
}

// The bootloader stays through resets until a download completes; then the
// boot-address reset starts the new patch.
TEST(Controller, ResetsFollowTheDownload) {
  Controller controller(ConfigForProfile(Profile::kLegacyOp));
  const std::vector<Sent> resetAnswers = {Complete(0x01), {{0x04, 0x0E, 0x03, 0x01, 0x00, 0x00}}};
  EXPECT_EQ(Exchange(controller, kBootAddressReset), resetAnswers);
  EXPECT_FALSE(controller.InBootloader());
  EXPECT_EQ(Exchange(controller, Command(0xFC01, {1, 0, 0, 0, 0, 0, 0, 0})), resetAnswers);
  EXPECT_EQ(Exchange(controller, kReadVersion).at(0).bytes[10], kBootloaderFwVariant);
  Exchange(controller, kBootAddressReset);
  EXPECT_TRUE(controller.InBootloader());
  EXPECT_EQ(Play(controller, kSfi).completions, std::vector<uint8_t>{0});
  Exchange(controller, kBootAddressReset);
  const Bytes version = Exchange(controller, kReadVersion).at(0).bytes;
  EXPECT_EQ(version[15], kSpec.patchNumber);
  EXPECT_NE(version[10], kBootloaderFwVariant);
}

TEST(Controller, ByteStreamMayBeCutAnywhereAndCarryNoise) {
  const Bytes manf = Command(0xFC11, {1, 0});
  const Bytes stream = {0x00, 0x01, 0x05, 0xFC, 0x01, 0xFF, 0x01, 0x11, 0xFC, 0x02, 0x01, 0x00};
  for (size_t cut = 0; cut <= stream.size(); ++cut) {
    Controller controller(ConfigForProfile(Profile::kTlvBoot));
    std::vector<Bytes> seen;
    controller.SetCommandObserver(
        [&](std::span<const uint8_t> c) { seen.emplace_back(c.begin(), c.end()); });
    controller.Receive(std::span(stream).first(cut));
    controller.Receive(std::span(stream).subspan(cut));
    EXPECT_EQ(seen, (std::vector<Bytes>{kReadVersion, manf})) << cut;
    EXPECT_EQ(controller.DroppedBytes(), 1u);
  }
}

TEST(Faults, EachKindChangesTheAnswerOnce) {
  const Bytes command = Command(0xFC22, {7});
  const Sent complete = Complete(0x22);
  Bytes oversize = {0x02, 0x00, 0x00, 0x27, 0x01};  // an ACL header: 295 bytes follow
  oversize.resize(kOversizePacketSize);
  const std::pair<const char*, std::vector<Sent>> cases[] = {
      {"silent", {}},
      {"wrong-event", {{{0x04, 0x0F, 0x04, 0x01, 0x22, 0xFC, 0x00}}}},
      {"wrong-opcode", {Complete(0x23)}},
      {"failed-status", {{{0x04, 0x0E, 0x04, 0x01, 0x22, 0xFC, 0x1F}}}},
      {"unsolicited", {{kDebug}, complete}},
      {"pending-reset", {Complete(0x01)}},
      {"split", {{complete.bytes, kDeliverSplit}}},
      {"join", {{complete.bytes, kDeliverJoinNext}, {kDebug}}},
      {"prefix-only", {{complete.bytes, kDeliverPrefixOnly}}},
      {"noise", {{complete.bytes, kDeliverNoise}}},
      {"oversize", {{oversize}}},
      {"close", {{{}, kDeliverClose}}},
  };
  for (const auto& [fault, expected] : cases) {
    SCOPED_TRACE(fault);
    Controller controller = WithFault(fault);
    EXPECT_EQ(Exchange(controller, command), expected);
    EXPECT_EQ(Exchange(controller, command), std::vector<Sent>{complete});
  }
  Controller failing = WithFault("failed-completion");  // waits for the download's end
  EXPECT_EQ(Play(failing, kSfi).completions, std::vector<uint8_t>{0x10});
}

// Only the second Read Version fails; every command is split.
TEST(Faults, CountingByOpcodeAndEveryCommand) {
  Controller second = WithFault("failed-status@2/fc05");
  Controller every = WithFault("split@*");
  const Bytes other = Command(0xFC11, {1, 0});
  for (const auto& [command, status] :
       {std::pair{kReadVersion, 0x00}, {other, 0x00}, {kReadVersion, 0x1F}, {kReadVersion, 0}}) {
    EXPECT_EQ(Exchange(second, command).at(0).bytes[6], status);
    EXPECT_EQ(Exchange(every, command).at(0).delivery, kDeliverSplit);
  }
}

// Each case starts from an SFI image sent under scheme 0; the edits make the
// layout or the violation.
TEST(SecureSend, LayoutsAndTheirViolations) {
  struct Case {
    const char* name;
    uint8_t scheme;
    void (*image)(Bytes&);
    void (*script)(Script&);
    uint8_t status;
  };
  static const Bytes kShortKey = Command(0xFC09, {3, 0, 0, 0, 0});
  static const Bytes kSixBytes = Command(0xFC09, {1, 0x8E, 0xFC, 0, 0x8E, 0xFC, 0});
  static const Bytes kCut = Command(0xFC09, {1, 0x8E, 0xFC, 4, 0});
  const Case cases[] = {
      {"two blocks, second", 1, nullptr,
       [](Script& s) { s = test::SecureSendCommands(fwimage::BuildTwoBlockImage(kSpec, true), 1); },
       0x00},
      {"empty body", 0, [](Bytes& i) { i = fwimage::BuildSfiImage(kSpec, {}); }, nullptr, 0x00},
      {"header twice", 0, nullptr, [](Script& s) { s.insert(s.begin() + 1, s[0]); }, 0x01},
      {"short key piece", 0, nullptr, [](Script& s) { s[1] = kShortKey; }, 0x02},
      {"body group of 6 bytes", 0, nullptr, [](Script& s) { s[5] = kSixBytes; }, 0x03},
      {"body group cutting a command", 0, nullptr, [](Script& s) { s[5] = kCut; }, 0x03},
      {"corrupted body", 0, [](Bytes& i) { i[700] ^= 0x01; }, nullptr, 0x04},
      {"header records less body", 0, [](Bytes& i) { WriteLe32(i, 8, ReadLe32(i, 8) - 1); },
       nullptr, 0x05},
      {"unknown block", 0, [](Bytes& i) { i[0] = 0x02; }, nullptr, 0x06},
      {"fragment type 4", 0, nullptr, [](Script& s) { s[0][3] = 4; }, 0x07},
      {"first block under scheme 1", 1, nullptr, nullptr, 0x08},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Bytes image = fwimage::BuildSfiImage(kSpec);
    if (c.image) c.image(image);
    Script script = test::SecureSendCommands(image, 0);
    if (c.script) c.script(script);
    ControllerConfig config = ConfigForProfile(Profile::kTlvBoot);
    config.signatureScheme = c.scheme;
    Controller controller(config);
    const Outcome outcome = Play(controller, script);
    EXPECT_EQ(outcome.completions, std::vector<uint8_t>{c.status});
    EXPECT_EQ(outcome.confirmed + outcome.refused, script.size());
  }
}

TEST(SecureSend, FragmentsAfterTheEndOrInOperationalFirmwareAreRefused) {
  Script script = kSfi;
  script.push_back(script.back());
  Controller boot(ConfigForProfile(Profile::kTlvBoot));
  Outcome outcome = Play(boot, script);
  EXPECT_EQ(outcome.confirmed, kSfi.size());
  EXPECT_EQ(outcome.refused, 1u);
  EXPECT_EQ(outcome.completions, std::vector<uint8_t>{0});
  Controller operational(ConfigForProfile(Profile::kTlvOp));
  outcome = Play(operational, script);
  EXPECT_EQ(outcome.refused, script.size());
  EXPECT_TRUE(outcome.completions.empty());
}

}  // namespace
}  // namespace qrx::sim
