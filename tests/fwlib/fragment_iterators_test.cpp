#include "fwlib/fragment_iterators.h"

#include <gtest/gtest.h>

#include <random>
#include <span>
#include <string>

#include "fwlib/image_context.h"
#include "image/fw_image.h"

namespace qrx {
namespace {

using testing::ImageContext;
using Iterator = FwLibStatus (*)(FwLibContext*, uint8_t*, uint32_t*);
using Command = std::vector<uint8_t>;

struct Walk {
  std::vector<Command> commands;
  FwLibStatus end = kFwLibSuccess;  // the first status other than 0
};

Walk WalkAll(FwLibContext& context, Iterator next = GetNextCommand, uint32_t capacity = 258) {
  Walk walk;
  for (;;) {
    std::array<uint8_t, 300> buffer{};
    uint32_t length = capacity;
    walk.end = next(&context, buffer.data(), &length);
    if (walk.end != kFwLibSuccess) {
      EXPECT_EQ(length, walk.end == kFwLibImageExhausted ? capacity : 0u);
      return walk;
    }
    walk.commands.emplace_back(buffer.begin(), buffer.begin() + length);
  }
}

// A Secure Send expected to carry image bytes [from, from + size).
struct Fragment {
  uint8_t type;
  size_t from;
  size_t size;
};
constexpr std::array<Fragment, 5> kFirstBlock = {
    {{0x00, 0, 128}, {0x03, 128, 252}, {0x03, 380, 4}, {0x02, 388, 252}, {0x02, 640, 4}}};
constexpr std::array<Fragment, 3> kSecondBlock = {
    {{0x00, 644, 128}, {0x03, 772, 96}, {0x02, 868, 96}}};

Command SecureSend(std::span<const uint8_t> image, const Fragment& f) {
  Command command(4 + f.size);
  command[0] = 0x09;
  command[1] = 0xFC;
  command[2] = static_cast<uint8_t>(f.size + 1);
  command[3] = f.type;
  std::copy_n(image.begin() + f.from, f.size, command.begin() + 4);
  return command;
}

// Checks the block fragments, then returns the body fragments' data sizes
// after checking that they reassemble the image from bodyStart on.
std::vector<size_t> CheckSignedWalk(const Walk& walk, std::span<const uint8_t> image,
                                    std::span<const Fragment> block, size_t bodyStart) {
  EXPECT_GE(walk.commands.size(), block.size());
  for (size_t i = 0; i < block.size() && i < walk.commands.size(); ++i) {
    EXPECT_EQ(walk.commands[i], SecureSend(image, block[i])) << "fragment " << i;
  }
  std::vector<size_t> sizes;
  Command body;
  for (size_t i = block.size(); i < walk.commands.size(); ++i) {
    const Command& c = walk.commands[i];
    EXPECT_EQ((Command{c.begin(), c.begin() + 4}),
              (Command{0x09, 0xFC, static_cast<uint8_t>(c.size() - 3), 0x01}));
    sizes.push_back(c.size() - 4);
    body.insert(body.end(), c.begin() + 4, c.end());
  }
  EXPECT_EQ(body, (Command{image.begin() + std::min(bodyStart, image.size()), image.end()}));
  return sizes;
}

fwimage::SignedImageSpec Spec(uint32_t bodyBytes = 2400) {
  return {.bodyBytes = bodyBytes, .seed = 11};
}

TEST(SignedIterators, WalkEachLayoutAndReassembleItsPieces) {
  struct Case {
    const char* name;
    bool twoBlock, withSecondBlock;
    uint8_t isTlvForm, scheme;
    std::span<const Fragment> block;
    size_t bodyStart;
  };
  const Case cases[] = {
      {"sfi", false, false, 0, 0, kFirstBlock, 644},
      {"two blocks, scheme 0", true, true, 1, 0, kFirstBlock, 964},
      {"two blocks, scheme 1", true, true, 1, 1, kSecondBlock, 964},
      {"short two-block, scheme 0", true, false, 1, 0, kFirstBlock, 644},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    ImageContext ctx(c.twoBlock ? fwimage::BuildTwoBlockImage(Spec(), c.withSecondBlock)
                                : fwimage::BuildSfiImage(Spec()),
                     0, c.isTlvForm, c.scheme);
    const Walk walk = WalkAll(ctx.context);
    EXPECT_EQ(walk.end, kFwLibImageExhausted);
    EXPECT_EQ(ctx.Offset(), ctx.image.size());
    const auto sizes = CheckSignedWalk(walk, ctx.image, c.block, c.bodyStart);
    // The image library's group cycle, as the loader must cut it.
    ASSERT_GE(sizes.size(), 10u);
    EXPECT_EQ(std::vector<size_t>(sizes.begin(), sizes.begin() + 10),
              (std::vector<size_t>{252, 252, 28, 252, 128, 252, 4, 252, 12, 252}));
  }
}

TEST(SignedIterators, OnlyTheLongAnswerFormStepsOverTheSecondBlock) {
  for (uint8_t isTlvForm : {0, 1}) {
    ImageContext ctx(fwimage::BuildTwoBlockImage(Spec(), true), 0, isTlvForm, 0);
    std::array<uint8_t, 300> buffer{};
    uint32_t length = 0;
    for (int i = 0; i < 6; ++i) {
      length = 258;
      ASSERT_EQ(GetNextCommand(&ctx.context, buffer.data(), &length), kFwLibSuccess);
    }
    // The one-block walk cuts the second block's header as body: its marker
    // and length byte make a 4-byte command.
    const Fragment body = isTlvForm ? Fragment{0x01, 964, 252} : Fragment{0x01, 644, 4};
    EXPECT_EQ(Command(buffer.begin(), buffer.begin() + length), SecureSend(ctx.image, body));
  }
}

TEST(SignedIterators, PrefixOnlyImageGivesFiveFragmentsThenStaysExhausted) {
  ImageContext ctx(fwimage::BuildSfiImage(Spec(), {}));
  ASSERT_EQ(ctx.image.size(), 644u);
  const Walk walk = WalkAll(ctx.context, NextSfiCommand);
  EXPECT_EQ(walk.end, kFwLibImageExhausted);
  EXPECT_TRUE(CheckSignedWalk(walk, ctx.image, kFirstBlock, 644).empty());
  EXPECT_TRUE(WalkAll(ctx.context, NextSfiCommand).commands.empty());
}

// Body commands given by their parameter lengths; the last `cut` bytes removed.
TEST(SignedIterators, BodyGroupsCloseOnFourByteMultiplesWithin252) {
  struct Case {
    const char* name;
    std::vector<uint8_t> paramLengths;
    size_t cut;
    std::vector<size_t> groups;
    FwLibStatus end;
  };
  const Case cases[] = {
      {"four commands, 28 bytes", {4, 4, 8, 0}, 0, {28}, kFwLibImageExhausted},
      {"one-byte command alone, then 252", {1, 249}, 0, {4, 252}, kFwLibImageExhausted},
      {"four empty commands", {0, 0, 0, 0}, 0, {12}, kFwLibImageExhausted},
      {"parameters pass 252", {250}, 0, {}, kFwLibInvalidEvent},
      {"next header passes 252", {248, 0}, 0, {}, kFwLibInvalidEvent},
      {"no multiple of 4 within 252", {246, 2}, 0, {}, kFwLibInvalidEvent},
      {"body ends inside a group", {1, 0}, 0, {4}, kFwLibInvalidEvent},
      {"header cut short", {1, 0}, 1, {4}, kFwLibInvalidEvent},
      {"command runs past the end", {8}, 2, {}, kFwLibInvalidEvent},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    std::vector<uint8_t> body;
    for (uint8_t length : c.paramLengths) {
      body.insert(body.end(), {0x8E, 0xFC, length});
      body.resize(body.size() + length, length);
    }
    body.resize(body.size() - c.cut);
    ImageContext ctx(fwimage::BuildSfiImage(Spec(), body));
    const Walk walk = WalkAll(ctx.context, NextSfiCommand);
    EXPECT_EQ(walk.end, c.end);
    std::vector<size_t> groups;
    size_t sent = 0;
    for (size_t i = kFirstBlock.size(); i < walk.commands.size(); ++i) {
      groups.push_back(walk.commands[i].size() - 4);
      sent += groups.back();
    }
    EXPECT_EQ(groups, c.groups);
    EXPECT_EQ(ctx.Offset(), 644 + sent);  // a refused group moves nothing
  }
}

TEST(SignedIterators, ShortImageWithSecondBlockMarkerFailsAtTheBody) {
  auto image = fwimage::BuildTwoBlockImage(Spec(), true);
  image.resize(900);
  ImageContext ctx(std::move(image), 0, 1, 0);
  const Walk walk = WalkAll(ctx.context);
  EXPECT_EQ(walk.end, kFwLibInvalidEvent);
  EXPECT_EQ(walk.commands.size(), kFirstBlock.size());
  EXPECT_EQ(ctx.Offset(), 644u);
}

TEST(SignedIterators, AFailedFragmentIsNotRetried) {
  // The stage moves on before the fragment is checked, so the stage after a
  // refused fragment is the next one, sent from where the position stayed.
  auto image = fwimage::BuildSfiImage(Spec());
  image.resize(500);
  ImageContext ctx(std::move(image));
  const Walk walk = WalkAll(ctx.context, NextSfiCommand);
  EXPECT_EQ(walk.end, kFwLibInvalidEvent);
  EXPECT_EQ(walk.commands.size(), 3u);
  EXPECT_EQ(ctx.Offset(), 388u);  // the key field stays skipped
  const Walk again = WalkAll(ctx.context, NextSfiCommand);
  ASSERT_FALSE(again.commands.empty());
  EXPECT_EQ(again.commands.front(), SecureSend(ctx.image, {0x02, 388, 4}));

  ImageContext small(fwimage::BuildSfiImage(Spec()));
  std::array<uint8_t, 300> buffer{};
  uint32_t length = 131;  // one byte short of the header fragment
  EXPECT_EQ(NextSfiCommand(&small.context, buffer.data(), &length), kFwLibInvalidEvent);
  EXPECT_EQ(length, 0u);
  length = 258;
  EXPECT_EQ(NextSfiCommand(&small.context, buffer.data(), &length), kFwLibSuccess);
  EXPECT_EQ(Command(buffer.begin(), buffer.begin() + length),
            SecureSend(small.image, {0x03, 0, 252}));
}

TEST(Iterators, RefuseBadArgumentsModesStagesAndSchemes) {
  struct Case {
    const char* name;
    uint8_t isOperational, isTlvForm, scheme, stage;
    uint32_t capacity;
    FwLibStatus expected;
    void (*tweak)(FwLibContext&);
  };
  const Case cases[] = {
      {"no iterator for mode 2", 2, 0, 0, 0, 258, kFwLibInvalidEvent, nullptr},
      {"zero capacity", 0, 0, 0, 0, 0, kFwLibInvalidParameter, nullptr},
      {"capacity under 4, signed", 0, 0, 0, 0, 3, kFwLibInvalidParameter, nullptr},
      {"scheme 2", 0, 1, 2, 0, 258, kFwLibInvalidParameter, nullptr},
      {"scheme 0 stage 6", 0, 1, 0, 6, 258, kFwLibInvalidParameter, nullptr},
      {"scheme 1 stage 4", 0, 1, 1, 4, 258, kFwLibInvalidParameter, nullptr},
      {"one-block stage 6", 0, 0, 0, 6, 258, kFwLibInvalidEvent, nullptr},
      {"wrong tag", 0, 0, 0, 0, 258, kFwLibInvalidParameter, [](FwLibContext& c) { c.magic = 0; }},
      {"short version answer", 0, 1, 0, 0, 258, kFwLibInvalidParameter,
       [](FwLibContext& c) { c.versionLength = kLegacyVersionLength; }},
      {"position past the end", 1, 0, 0, 0, 259, kFwLibInvalidEvent,
       [](FwLibContext& c) { c.imageOffset = c.imageSize + 1; }},
      {"no image", 1, 0, 0, 0, 259, kFwLibInvalidParameter,
       [](FwLibContext& c) { c.imageData = nullptr; }},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    ImageContext ctx(fwimage::BuildTwoBlockImage(Spec(), true), c.isOperational, c.isTlvForm,
                     c.scheme);
    ctx.context.signatureStage = c.stage;
    if (c.tweak != nullptr) c.tweak(ctx.context);
    const uint32_t before = ctx.Offset();
    std::array<uint8_t, 300> buffer{};
    uint32_t length = c.capacity;
    EXPECT_EQ(GetNextCommand(&ctx.context, buffer.data(), &length), c.expected);
    EXPECT_EQ(length, 0u);
    EXPECT_EQ(ctx.Offset(), before);
  }
  uint32_t length = 258;
  std::array<uint8_t, 8> buffer{};
  EXPECT_EQ(GetNextCommand(nullptr, buffer.data(), &length), kFwLibInvalidParameter);
  EXPECT_EQ(length, 0u);
  EXPECT_EQ(GetNextCommand(nullptr, nullptr, nullptr), kFwLibInvalidParameter);
}

TEST(BseqIterator, SendsCommandsAsTheyStandAndStepsOverEvents) {
  const auto commands = fwimage::SampleBseqCommands(12, 5);
  for (bool withEvents : {true, false}) {
    ImageContext ctx(fwimage::BuildBseqImage(commands, withEvents), 1);
    const Walk walk = WalkAll(ctx.context, GetNextCommand, 259);
    EXPECT_EQ(walk.end, kFwLibImageExhausted);
    EXPECT_EQ(ctx.Offset(), ctx.image.size());
    ASSERT_EQ(walk.commands.size(), commands.size());
    for (size_t i = 0; i < commands.size(); ++i) {
      Command expected = {static_cast<uint8_t>(commands[i].opcode),
                          static_cast<uint8_t>(commands[i].opcode >> 8),
                          static_cast<uint8_t>(commands[i].params.size())};
      expected.insert(expected.end(), commands[i].params.begin(), commands[i].params.end());
      EXPECT_EQ(walk.commands[i], expected) << i;
    }
  }
}

TEST(BseqIterator, MalformedRecordsAndShortBuffers) {
  struct Case {
    const char* name;
    std::vector<uint8_t> image;
    uint32_t capacity;
    FwLibStatus expected;
    uint32_t offsetAfter;
  };
  std::vector<uint8_t> longest = {0x01, 0x8E, 0xFC, 0xFF};
  longest.resize(longest.size() + 255, 0x5A);
  const Case cases[] = {
      {"event records only",
       {0x02, 0x0E, 0x04, 0x01, 0x8E, 0xFC, 0x00, 0x02, 0xFF, 0x02, 0x19, 0x00},
       259,
       kFwLibImageExhausted,
       12},
      {"empty file", {}, 259, kFwLibImageExhausted, 0},
      {"unknown record type", {0x03, 0x00, 0x00}, 259, kFwLibInvalidEvent, 0},
      {"event header cut", {0x02, 0x0E}, 259, kFwLibInvalidEvent, 0},
      {"event parameters cut", {0x02, 0x0E, 0x05, 0x01}, 259, kFwLibInvalidEvent, 0},
      {"command header cut", {0x01, 0x8E}, 259, kFwLibInvalidEvent, 1},
      {"command parameters cut", {0x01, 0x8E, 0xFC, 0x05, 0xAA}, 259, kFwLibInvalidEvent, 1},
      {"command beyond capacity", longest, 257, kFwLibInvalidEvent, 1},
      {"capacity under 3", {0x01, 0x8E, 0xFC, 0x00}, 2, kFwLibInvalidEvent, 1},
      {"longest command fits", longest, 258, kFwLibSuccess, 259},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    ImageContext ctx(c.image, 1);
    std::array<uint8_t, 300> buffer{};
    uint32_t length = c.capacity;
    EXPECT_EQ(NextBseqCommand(&ctx.context, buffer.data(), &length), c.expected);
    EXPECT_EQ(length, c.expected == kFwLibSuccess          ? 258u
                      : c.expected == kFwLibImageExhausted ? c.capacity
                                                           : 0u);
    EXPECT_EQ(ctx.Offset(), c.offsetAfter);
  }
}

// Damaged images, walked by every iterator: each walk ends in a status, every
// command fits its buffer, and (under the sanitizers) nothing is read outside
// the image. Every cut of each image is tried, then random damage.
TEST(Iterators, DamagedImagesEndInAStatus) {
  const std::vector<std::vector<uint8_t>> sources = {
      fwimage::BuildSfiImage(Spec(700)), fwimage::BuildTwoBlockImage(Spec(700), true),
      fwimage::BuildBseqImage(fwimage::SampleBseqCommands(8, 3), true)};
  const auto walkEveryWay = [](const std::vector<uint8_t>& image, uint8_t scheme) {
    for (uint8_t mode = 0; mode < 4; ++mode) {
      ImageContext ctx(image, mode % 2, mode / 2, scheme);
      const Walk walk = WalkAll(ctx.context, GetNextCommand, 255);
      ASSERT_NE(walk.end, kFwLibSuccess);
      ASSERT_LE(ctx.Offset(), image.size());
      for (const Command& c : walk.commands) ASSERT_LE(c.size(), 255u);
    }
  };
  for (const auto& source : sources) {
    for (size_t cut = 0; cut <= source.size(); ++cut) {
      walkEveryWay({source.begin(), source.begin() + cut}, cut % 2);
    }
  }
  std::mt19937 random(7);
  for (int round = 0; round < 300; ++round) {
    auto image = sources[round % sources.size()];
    for (int flips = 1 + random() % 4; flips > 0; --flips) {
      image[random() % image.size()] = static_cast<uint8_t>(random());
    }
    walkEveryWay(image, static_cast<uint8_t>(round % 3));
  }
}

}  // namespace
}  // namespace qrx
