#include <gtest/gtest.h>

#include <functional>

#include "download_script.h"
#include "image/fw_image.h"
#include "model/controller.h"
#include "platform/byte_order.h"

namespace qrx::sim {
namespace {

using test::Bytes;
using Script = std::vector<Bytes>;

fwimage::SignedImageSpec SmallSpec() {
  fwimage::SignedImageSpec spec;
  spec.bodyBytes = 1200;
  return spec;
}

struct Outcome {
  uint32_t fragmentAnswers = 0;
  uint32_t refusedAnswers = 0;
  std::vector<uint8_t> completions;  // status of each completion event
};

Outcome Play(Controller& controller, const Script& script) {
  Outcome outcome;
  for (const Bytes& command : script) {
    Bytes h4 = {0x01};
    h4.insert(h4.end(), command.begin(), command.end());
    controller.Receive(h4);
    while (auto packet = controller.PopOutput()) {
      const Bytes& e = packet->bytes;
      if (e[1] == 0x0E && e[4] == 0x09 && e[5] == 0xFC) {
        ++(e[6] == 0 ? outcome.fragmentAnswers : outcome.refusedAnswers);
      } else if (e[1] == 0xFF && e[3] == 0x06) {
        outcome.completions.push_back(e[4]);
      } else {
        ADD_FAILURE() << "unexpected event";
      }
    }
  }
  return outcome;
}

Script SfiScript(const std::function<void(Bytes&)>& editImage = {}) {
  Bytes image = fwimage::BuildSfiImage(SmallSpec());
  if (editImage) editImage(image);
  return test::SecureSendCommands(image, 0);
}

TEST(SecureSend, LayoutsAndTheirViolations) {
  struct Case {
    const char* name;
    uint8_t scheme;
    std::function<Script()> script;
    uint8_t status;
  };
  const Case cases[] = {
      {"sfi", 0, [] { return SfiScript(); }, 0x00},
      {"two blocks, first", 0,
       [] { return test::SecureSendCommands(fwimage::BuildTwoBlockImage(SmallSpec(), true), 0); },
       0x00},
      {"two blocks, second", 1,
       [] { return test::SecureSendCommands(fwimage::BuildTwoBlockImage(SmallSpec(), true), 1); },
       0x00},
      {"no second block", 0,
       [] { return test::SecureSendCommands(fwimage::BuildTwoBlockImage(SmallSpec(), false), 0); },
       0x00},
      {"empty body", 0,
       [] {
         return SfiScript([](Bytes& i) {
           i.resize(644);
           WriteLe32(i, 8, 0);
           WriteLe32(i, 12, fwimage::BodyChecksum({}));
         });
       },
       0x00},
      {"body before signature", 0,
       [] {
         Script s = SfiScript();
         s.erase(s.begin() + 3, s.begin() + 5);
         return s;
       },
       0x01},
      {"header twice", 0,
       [] {
         Script s = SfiScript();
         s.insert(s.begin() + 1, s[0]);
         return s;
       },
       0x01},
      {"short key piece", 0,
       [] {
         Script s = SfiScript();
         s[1].resize(s[1].size() - 4);
         s[1][2] -= 4;
         return s;
       },
       0x02},
      {"second block sizes under scheme 0", 0,
       [] {
         Script s = SfiScript([](Bytes& i) { i[0] = 0x06; });
         return s;
       },
       0x08},
      {"body fragment of 2 commands of 3 bytes", 0,
       [] {
         Script s = SfiScript();
         s.insert(s.begin() + 5, test::Command(0xFC09, {1, 0x8E, 0xFC, 0, 0x8E, 0xFC, 0}));
         return s;
       },
       0x03},
      {"body fragment cutting a command", 0,
       [] {
         Script s = SfiScript();
         s.insert(s.begin() + 5, test::Command(0xFC09, {1, 0x8E, 0xFC, 4, 0}));
         return s;
       },
       0x03},
      {"corrupted body", 0, [] { return SfiScript([](Bytes& i) { i[700] ^= 0x01; }); }, 0x04},
      {"header records less body", 0,
       [] { return SfiScript([](Bytes& i) { WriteLe32(i, 8, ReadLe32(i, 8) - 1); }); }, 0x05},
      {"unknown block", 0, [] { return SfiScript([](Bytes& i) { i[0] = 0x02; }); }, 0x06},
      {"no fragment type", 0, [] { return Script{test::Command(0xFC09, {})}; }, 0x07},
      {"fragment type 4", 0,
       [] {
         return Script{test::Command(0xFC09, {4, 0, 0, 0, 0})};
       },
       0x07},
      {"first block under scheme 1", 1, [] { return SfiScript(); }, 0x08},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    ControllerConfig config = ConfigForProfile(Profile::kTlvBoot);
    config.signatureScheme = c.scheme;
    Controller controller(config);
    const Script script = c.script();
    const Outcome outcome = Play(controller, script);
    ASSERT_EQ(outcome.completions.size(), 1u);
    EXPECT_EQ(outcome.completions[0], c.status);
    // Every fragment up to the one that ended the download is confirmed;
    // any after it is refused.
    EXPECT_EQ(outcome.fragmentAnswers + outcome.refusedAnswers, script.size());
    EXPECT_EQ(controller.Download()->Ended(), true);
  }
}

TEST(SecureSend, FragmentsAfterTheEndAreRefused) {
  Controller controller(ConfigForProfile(Profile::kTlvBoot));
  Script script = SfiScript();
  const size_t sent = script.size();
  script.push_back(script.back());
  const Outcome outcome = Play(controller, script);
  EXPECT_EQ(outcome.fragmentAnswers, sent);
  EXPECT_EQ(outcome.refusedAnswers, 1u);
  EXPECT_EQ(outcome.completions, std::vector<uint8_t>{0});
}

TEST(SecureSend, DdcWriteSilencesFragmentsButNotTheCompletion) {
  Controller controller(ConfigForProfile(Profile::kTlvBoot));
  controller.Receive(Bytes{0x01, 0x8B, 0xFC, 4, 3, 0x86, 1, 1});
  ASSERT_TRUE(controller.PopOutput().has_value());
  const Outcome outcome = Play(controller, SfiScript());
  EXPECT_EQ(outcome.fragmentAnswers + outcome.refusedAnswers, 0u);
  EXPECT_EQ(outcome.completions, std::vector<uint8_t>{0});
}

TEST(SecureSend, OperationalFirmwareRefusesSignedImages) {
  Controller controller(ConfigForProfile(Profile::kTlvOp));
  const Script script = SfiScript();
  const Outcome outcome = Play(controller, script);
  EXPECT_EQ(outcome.refusedAnswers, script.size());
  EXPECT_TRUE(outcome.completions.empty());
}

}  // namespace
}  // namespace qrx::sim
