#include <gtest/gtest.h>

#include "download_script.h"
#include "image/fw_image.h"
#include "model/controller.h"

namespace qrx::sim {
namespace {

using test::Bytes;

struct Sent {
  Bytes bytes;
  uint8_t delivery;
  bool operator==(const Sent&) const = default;
};

std::vector<Sent> Exchange(Controller& controller, const Bytes& command) {
  Bytes h4 = {0x01};
  h4.insert(h4.end(), command.begin(), command.end());
  controller.Receive(h4);
  std::vector<Sent> out;
  while (auto packet = controller.PopOutput()) out.push_back({packet->bytes, packet->delivery});
  return out;
}

Controller WithFault(const std::string& text) {
  std::string error;
  const auto spec = ParseFaultSpec(text, &error);
  EXPECT_TRUE(spec) << error;
  FaultPlan plan;
  if (spec) plan.Add(*spec);
  return Controller(ConfigForProfile(Profile::kTlvBoot), plan);
}

const Bytes kCommand = test::Command(0xFC22, {7});
const Bytes kComplete = {0x04, 0x0E, 0x04, 0x01, 0x22, 0xFC, 0x00};
const Bytes kDebug = {0x04, 0xFF, 0x02, 0x2A, 0x00};

Bytes OversizeHeader() {
  Bytes acl(300, 0);
  acl[0] = 0x02;
  acl[3] = 0x27;  // 295 bytes follow the header
  acl[4] = 0x01;
  return acl;
}

TEST(Faults, EachKindChangesTheAnswerAsDocumented) {
  struct Case {
    const char* spec;
    std::vector<Sent> expected;
  };
  const Case cases[] = {
      {"silent", {}},
      {"wrong-event", {{{0x04, 0x0F, 0x04, 0x01, 0x22, 0xFC, 0x00}, kDeliverPlain}}},
      {"wrong-opcode", {{{0x04, 0x0E, 0x04, 0x01, 0x23, 0xFC, 0x00}, kDeliverPlain}}},
      {"failed-status", {{{0x04, 0x0E, 0x04, 0x01, 0x22, 0xFC, 0x1F}, kDeliverPlain}}},
      {"unsolicited", {{kDebug, kDeliverPlain}, {kComplete, kDeliverPlain}}},
      {"pending-reset", {{{0x04, 0x0E, 0x04, 0x01, 0x01, 0xFC, 0x00}, kDeliverPlain}}},
      {"split", {{kComplete, kDeliverSplit}}},
      {"join", {{kComplete, kDeliverJoinNext}, {kDebug, kDeliverPlain}}},
      {"prefix-only", {{kComplete, kDeliverPrefixOnly}}},
      {"noise", {{kComplete, kDeliverNoise}}},
      {"oversize", {{OversizeHeader(), kDeliverPlain}}},
      {"close", {{{}, kDeliverClose}}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.spec);
    Controller controller = WithFault(c.spec);
    EXPECT_EQ(Exchange(controller, kCommand), c.expected);
    // It fires once; the next command is answered plainly.
    EXPECT_EQ(Exchange(controller, kCommand), (std::vector<Sent>{{kComplete, kDeliverPlain}}));
  }
}

TEST(Faults, CountingByOpcodeAndEveryCommand) {
  Controller second = WithFault("failed-status@2/fc22");
  const Bytes other = test::Command(0xFC05, {0xFF});
  EXPECT_EQ(Exchange(second, kCommand)[0].bytes[6], 0x00);
  EXPECT_EQ(Exchange(second, other)[0].bytes[6], 0x00);
  EXPECT_EQ(Exchange(second, kCommand)[0].bytes[6], 0x1F);
  EXPECT_EQ(Exchange(second, kCommand)[0].bytes[6], 0x00);

  Controller every = WithFault("split@*");
  for (int i = 0; i < 3; ++i) EXPECT_EQ(Exchange(every, other)[0].delivery, kDeliverSplit);

  Controller third = WithFault("silent@3");
  EXPECT_EQ(Exchange(third, other).size(), 1u);
  EXPECT_EQ(Exchange(third, kCommand).size(), 1u);
  EXPECT_EQ(Exchange(third, other).size(), 0u);
}

TEST(Faults, FailedCompletionMarksTheDownloadsEnd) {
  Controller controller = WithFault("failed-completion");
  fwimage::SignedImageSpec spec;
  spec.bodyBytes = 300;
  std::vector<Sent> last;
  for (const Bytes& command : test::SecureSendCommands(fwimage::BuildSfiImage(spec), 0)) {
    last = Exchange(controller, command);
  }
  ASSERT_EQ(last.size(), 2u);
  EXPECT_EQ(last[1].bytes, (Bytes{0x04, 0xFF, 0x02, 0x06, 0x10}));
}

TEST(Faults, SpecsParseOrSayWhyNot) {
  struct Case {
    const char* text;
    bool ok;
    FaultKind kind;
    uint32_t occurrence;
    bool every;
    int opcode;  // -1: none
  };
  const Case cases[] = {
      {"noise", true, FaultKind::kNoise, 1, false, -1},
      {"close@4", true, FaultKind::kClose, 4, false, -1},
      {"split@*/0xFC09", true, FaultKind::kSplit, 1, true, 0xFC09},
      {"wrong-opcode/fc05", true, FaultKind::kWrongOpcode, 1, false, 0xFC05},
      {"noise@0", false, {}, 0, false, 0},
      {"noise@x", false, {}, 0, false, 0},
      {"noise/12345", false, {}, 0, false, 0},
      {"louder", false, {}, 0, false, 0},
  };
  for (const Case& c : cases) {
    std::string error;
    const auto spec = ParseFaultSpec(c.text, &error);
    ASSERT_EQ(spec.has_value(), c.ok) << c.text;
    if (!c.ok) {
      EXPECT_FALSE(error.empty());
      continue;
    }
    EXPECT_EQ(spec->kind, c.kind);
    EXPECT_EQ(spec->occurrence, c.occurrence);
    EXPECT_EQ(spec->every, c.every);
    EXPECT_EQ(spec->opcode ? *spec->opcode : -1, c.opcode);
  }
}

}  // namespace
}  // namespace qrx::sim
