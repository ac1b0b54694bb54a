#include "model/controller.h"

#include <gtest/gtest.h>

#include "app/rate_tables.h"
#include "image/fw_image.h"
#include "model/line_rate.h"
#include "platform/byte_order.h"
#include "run/run_options.h"
#include "support/secure_sends.h"

namespace qrx::sim {
namespace {

using Bytes = std::vector<uint8_t>;
using Script = std::vector<Bytes>;

// Opcode, parameter length, parameters.
Bytes Command(uint16_t opcode, std::initializer_list<uint8_t> params) {
  Bytes command(params);
  command.insert(command.begin(), {static_cast<uint8_t>(opcode), static_cast<uint8_t>(opcode >> 8),
                                   static_cast<uint8_t>(params.size())});
  return command;
}

// A TLV bootloader that commits one fault; a rule that does not parse throws.
Controller WithFault(const char* rule) {
  std::string error;
  FaultPlan plan;
  plan.Add(ParseFaultSpec(rule, &error).value());
  return Controller(ConfigForProfile(Profile::kTlvBoot), plan);
}

struct Sent {
  Bytes bytes;
  uint8_t delivery = kDeliverPlain;
  bool operator==(const Sent&) const = default;
};

// Sends one command (H4 byte in front) and collects every packet it caused.
std::vector<Sent> Exchange(Controller& controller, Bytes command) {
  command.insert(command.begin(), 0x01);
  controller.Receive(command);
  std::vector<Sent> sent;
  while (auto packet = controller.PopOutput()) sent.push_back({packet->bytes, packet->delivery});
  return sent;
}

Sent Complete(uint8_t ocf) {
  return {{0x04, 0x0E, 0x04, 0x01, ocf, 0xFC, 0x00}};
}

constexpr fwimage::SignedImageSpec kRecipe{.bodyBytes = 1200, .seed = 1, .patchNumber = 7};
const Script kSfi = test::SecureSendCommands(fwimage::BuildSfiImage(kRecipe), 0, false);
const Script kTwoBlocks =
    test::SecureSendCommands(fwimage::BuildTwoBlockImage(kRecipe, true), 1, true);
const Bytes kReadVersion = Command(0xFC05, {0xFF});
const Bytes kBootAddressReset = Command(0xFC01, {0, 0, 0, 1, 0x00, 0x80, 0x00, 0x00});

// Every command is answered by its Command Complete; completion events may
// follow. The status of each completion event; refused counts the errors.
std::vector<uint8_t> Play(Controller& controller, const Script& script, size_t* refused = nullptr) {
  std::vector<uint8_t> completions;
  for (const Bytes& command : script) {
    const std::vector<Sent> sent = Exchange(controller, command);
    const Bytes& answer = sent.at(0).bytes;
    EXPECT_EQ(Bytes(answer.begin(), answer.end() - 1), (Bytes{0x04, 0x0E, 0x04, 0x01, 0x09, 0xFC}));
    if (refused) *refused += answer.back() != 0;
    for (auto event = sent.begin() + 1; event < sent.end(); ++event) {
      EXPECT_EQ(Bytes(event->bytes.begin(), event->bytes.end() - 1),
                (Bytes{0x04, 0xFF, 0x02, 0x06}));
      completions.push_back(event->bytes.back());
    }
  }
  return completions;
}

// The bootloader stays through resets until a download completes; then the
// boot-address reset starts the new patch.
TEST(Controller, ResetsFollowTheDownload) {
  Controller controller(ConfigForProfile(Profile::kLegacyBoot));
  Exchange(controller, kBootAddressReset);
  EXPECT_TRUE(controller.InBootloader());
  EXPECT_EQ(Play(controller, kSfi), std::vector<uint8_t>{0});
  Exchange(controller, kBootAddressReset);
  const Bytes version = Exchange(controller, kReadVersion).at(0).bytes;
  EXPECT_EQ(version[15], kRecipe.patchNumber);
  EXPECT_NE(version[10], kBootloaderFwVariant);
}

TEST(Controller, ByteStreamMayBeCutAnywhereAndCarryNoise) {
  const Bytes stream = {0x00, 0x01, 0x05, 0xFC, 0x01, 0xFF, 0x01, 0x11, 0xFC, 0x02, 0x01, 0x00};
  for (size_t cut = 0; cut <= stream.size(); ++cut) {
    Controller controller(ConfigForProfile(Profile::kTlvBoot));
    std::vector<Bytes> seen;
    controller.SetCommandObserver(
        [&](std::span<const uint8_t> c) { seen.emplace_back(c.begin(), c.end()); });
    controller.Receive(std::span(stream).first(cut));
    controller.Receive(std::span(stream).subspan(cut));
    EXPECT_EQ(seen, (std::vector<Bytes>{kReadVersion, Command(0xFC11, {1, 0})})) << cut;
    EXPECT_EQ(controller.DroppedBytes(), 1u);
  }
}

// Each fault changes one answer; the next command is answered plainly.
TEST(Faults, EachKindChangesTheAnswerOnce) {
  const Bytes command = Command(0xFC22, {7});
  const Sent complete = Complete(0x22);
  const Bytes debug = {0x04, 0xFF, 0x02, 0x2A, 0x00};
  Bytes oversize = {0x02, 0x00, 0x00, 0x27, 0x01};  // an ACL header: 295 bytes follow
  oversize.resize(kOversizePacketSize);
  const std::pair<const char*, std::vector<Sent>> cases[] = {
      {"silent", {}},
      {"wrong-event", {{{0x04, 0x0F, 0x04, 0x01, 0x22, 0xFC, 0x00}}}},
      {"wrong-opcode", {Complete(0x23)}},
      {"failed-status", {{{0x04, 0x0E, 0x04, 0x01, 0x22, 0xFC, 0x1F}}}},
      {"unsolicited", {{debug}, complete}},
      {"pending-reset", {Complete(0x01)}},
      {"split", {{complete.bytes, kDeliverSplit}}},
      {"join", {{complete.bytes, kDeliverJoinNext}, {debug}}},
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
}

// Each case starts from an SFI image sent under scheme 0; the edits make the
// layout or the violation. After a violation every fragment is refused.
TEST(SecureSend, LayoutsAndTheirViolations) {
  struct Case {
    const char* name;
    uint8_t scheme;
    void (*image)(Bytes&);
    void (*script)(Script&);
    uint8_t status;
    size_t refused;
  };
  static const Bytes kShortKey = Command(0xFC09, {3, 0, 0, 0, 0});
  static const Bytes kSixBytes = Command(0xFC09, {1, 0x8E, 0xFC, 0, 0x8E, 0xFC, 0});
  const Case cases[] = {
      {"two blocks, second", 1, nullptr, [](Script& s) { s = kTwoBlocks; }, 0x00, 0},
      {"empty body", 0, [](Bytes& i) { i = fwimage::BuildSfiImage(kRecipe, {}); }, nullptr, 0x00,
       0},
      {"fragment after the end", 0, nullptr, [](Script& s) { s.push_back(s.back()); }, 0x00, 1},
      {"header twice", 0, nullptr, [](Script& s) { s.insert(s.begin() + 1, s[0]); }, 0x01, 12},
      {"short key piece", 0, nullptr, [](Script& s) { s[1] = kShortKey; }, 0x02, 11},
      {"body group of 6 bytes", 0, nullptr, [](Script& s) { s[5] = kSixBytes; }, 0x03, 7},
      {"corrupted body", 0, [](Bytes& i) { i[700] ^= 0x01; }, nullptr, 0x04, 0},
      {"header records less body", 0, [](Bytes& i) { WriteLe32(i, 8, ReadLe32(i, 8) - 1); },
       nullptr, 0x05, 0},
      {"unknown block", 0, [](Bytes& i) { i[0] = 0x02; }, nullptr, 0x06, 12},
      {"fragment type 4", 0, nullptr, [](Script& s) { s[0][3] = 4; }, 0x07, 12},
      {"first block under scheme 1", 1, nullptr, nullptr, 0x08, 12},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Bytes image = fwimage::BuildSfiImage(kRecipe);
    if (c.image) c.image(image);
    Script script = test::SecureSendCommands(image, 0, false);
    if (c.script) c.script(script);
    ControllerConfig config = ConfigForProfile(Profile::kTlvBoot);
    config.signatureScheme = c.scheme;
    Controller controller(config);
    size_t refused = 0;
    EXPECT_EQ(Play(controller, script, &refused), std::vector<uint8_t>{c.status});
    EXPECT_EQ(refused, c.refused);
  }
}

// The host's terminal rate may be up to 2 % off the controller's, either way.
TEST(LineRate, HostRatesWithin2PercentAgree) {
  for (const uint32_t rate : {115200u, 3000000u}) {
    EXPECT_TRUE(RatesAgree(rate * 1015 / 1000, rate) && RatesAgree(rate * 985 / 1000, rate));
    EXPECT_FALSE(RatesAgree(rate * 1025 / 1000, rate) || RatesAgree(rate * 975 / 1000, rate));
  }
}

// Each code means to the controller the rate the loader sends it for (ASIC).
TEST(LineRate, CodesMatchTheLoadersRateTable) {
  for (const RateCode& entry : kRateCodes) {
    EXPECT_EQ(MapBaudRate(kHostInterfaceAsic, entry.rate, {}).code, entry.code) << entry.rate;
    EXPECT_EQ(RateForCode(entry.code), entry.rate);
  }
}

}  // namespace
}  // namespace qrx::sim
