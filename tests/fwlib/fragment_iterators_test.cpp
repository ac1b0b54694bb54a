#include "fwlib/fragment_iterators.h"

#include <gtest/gtest.h>

#include <random>
#include <span>

#include "fwlib/image_context.h"
#include "image/fw_image.h"

namespace qrx {
namespace {

using testing::ImageContext;
using Command = std::vector<uint8_t>;
using Iterator = FwLibStatus (*)(FwLibContext*, uint8_t*, uint32_t*);

struct Walk {
  std::vector<Command> commands;
  FwLibStatus end = kFwLibSuccess;  // the first status other than 0
};

Walk WalkAll(FwLibContext& context, uint32_t capacity = 258, Iterator next = GetNextCommand) {
  Walk walk;
  std::array<uint8_t, 300> buffer{};
  for (;;) {
    uint32_t length = capacity;
    walk.end = next(&context, buffer.data(), &length);
    if (walk.end != kFwLibSuccess) {
      EXPECT_EQ(length, walk.end == kFwLibImageExhausted ? capacity : 0u);
      return walk;
    }
    walk.commands.emplace_back(buffer.begin(), buffer.begin() + length);
  }
}

// Secure Send of image bytes [from, from + size).
struct Fragment {
  uint8_t type;
  size_t from, size;
};
const std::vector<Fragment> kFirstBlock = {
    {0x00, 0, 128}, {0x03, 128, 252}, {0x03, 380, 4}, {0x02, 388, 252}, {0x02, 640, 4}};
const std::vector<Fragment> kSecondBlock = {{0x00, 644, 128}, {0x03, 772, 96}, {0x02, 868, 96}};

Command SecureSend(std::span<const uint8_t> image, const Fragment& f) {
  Command command = {0x09, 0xFC, static_cast<uint8_t>(f.size + 1), f.type};
  command.resize(4 + f.size);
  std::copy_n(image.begin() + f.from, f.size, command.begin() + 4);
  return command;
}

const fwimage::SignedImageSpec kSpec = {.bodyBytes = 2400, .seed = 11};

TEST(SignedIterators, WalkEachLayoutAndReassembleIt) {
  const auto dual = fwimage::BuildTwoBlockImage(kSpec, true);
  const std::vector<uint8_t> cut(dual.begin(), dual.begin() + 900);
  struct Case {
    const char* name;
    std::vector<uint8_t> image;
    uint8_t tlv, scheme;
    const std::vector<Fragment>& block;
    size_t bodyStart;
    FwLibStatus end = kFwLibImageExhausted;
  };
  const Case cases[] = {
      {"sfi", fwimage::BuildSfiImage(kSpec), 0, 0, kFirstBlock, 644},
      {"block only", fwimage::BuildSfiImage(kSpec, {}), 0, 0, kFirstBlock, 644},
      {"two blocks, scheme 0", dual, 1, 0, kFirstBlock, 964},
      {"two blocks, scheme 1", dual, 1, 1, kSecondBlock, 964},
      {"no second block, scheme 0", fwimage::BuildTwoBlockImage(kSpec, false), 1, 0, kFirstBlock,
       644},
      {"marked second block cut at 900", cut, 1, 0, kFirstBlock, 900, kFwLibInvalidEvent},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    ImageContext ctx(c.image, 0, c.tlv, c.scheme);
    const Walk walk = WalkAll(ctx.context);
    EXPECT_EQ(walk.end, c.end);
    EXPECT_EQ(ctx.Offset(), c.end == kFwLibImageExhausted ? c.image.size() : 644u);
    ASSERT_GE(walk.commands.size(), c.block.size());
    Command body;
    for (size_t i = 0; i < walk.commands.size(); ++i) {
      const Command& command = walk.commands[i];
      if (i < c.block.size()) {
        EXPECT_EQ(command, SecureSend(c.image, c.block[i])) << i;
        continue;
      }
      // A body fragment: the Secure Send framing of its own data, type 0x01.
      EXPECT_EQ(command, SecureSend(command, {0x01, 4, command.size() - 4})) << i;
      EXPECT_EQ(command.size() % 4, 0u);
      body.insert(body.end(), command.begin() + 4, command.end());
    }
    EXPECT_EQ(body, Command(c.image.begin() + c.bodyStart, c.image.end()));
  }
}

TEST(SignedIterators, BodyGroupsCloseOnFourByteMultiplesWithin252) {
  struct Case {
    std::vector<uint8_t> paramLengths;  // one body command each
    size_t cut;                         // bytes removed from the body's end
    std::vector<size_t> groups;
    FwLibStatus end;
  };
  // clang-format off
  const Case cases[] = {
      {{4, 4, 8, 0}, 0, {28}, kFwLibImageExhausted}, {{1, 249}, 0, {4, 252}, kFwLibImageExhausted},
      {{0, 0, 0, 0}, 0, {12}, kFwLibImageExhausted}, {{250}, 0, {}, kFwLibInvalidEvent},
      {{248, 0}, 0, {}, kFwLibInvalidEvent},         {{246, 2}, 0, {}, kFwLibInvalidEvent},
      {{1, 0}, 0, {4}, kFwLibInvalidEvent},          {{1, 0}, 1, {4}, kFwLibInvalidEvent},
      {{8}, 2, {}, kFwLibInvalidEvent},
  };
  // clang-format on

  for (const Case& c : cases) {
    Command body;
    for (uint8_t length : c.paramLengths) {
      body.insert(body.end(), {0x8E, 0xFC, length});
      body.resize(body.size() + length, length);
    }
    body.resize(body.size() - c.cut);
    ImageContext ctx(fwimage::BuildSfiImage(kSpec, body));
    const Walk walk = WalkAll(ctx.context, 258, NextSfiCommand);
    std::vector<size_t> groups;
    size_t sent = 644;
    for (size_t i = 5; i < walk.commands.size(); ++i) {
      groups.push_back(walk.commands[i].size() - 4);
      sent += groups.back();
    }
    SCOPED_TRACE(::testing::PrintToString(c.paramLengths));
    EXPECT_EQ(walk.end, c.end);
    EXPECT_EQ(groups, c.groups);
    EXPECT_EQ(ctx.Offset(), sent);  // a refused group moves nothing
  }
}

TEST(SignedIterators, AStageWhoseFragmentFailsIsNotRetried) {
  ImageContext ctx(fwimage::BuildSfiImage(kSpec));
  std::array<uint8_t, 300> buffer{};
  uint32_t length = 131;  // one byte short of the header fragment
  EXPECT_EQ(NextSfiCommand(&ctx.context, buffer.data(), &length), kFwLibInvalidEvent);
  EXPECT_EQ(length, 0u);
  const Walk walk = WalkAll(ctx.context);
  ASSERT_FALSE(walk.commands.empty());
  EXPECT_EQ(walk.commands[0], SecureSend(ctx.image, {0x03, 0, 252}));
}

TEST(Iterators, RefuseBadArgumentsModesStagesAndSchemes) {
  struct Case {
    const char* name;
    uint8_t mode, tlv, scheme, stage;
    uint32_t capacity, magic, offset;
    FwLibStatus expected;
  };
  constexpr uint32_t kTag = kFwLibContextMagic;
  // clang-format off
  const Case cases[] = {
      {"no iterator for mode 2", 2, 0, 0, 0, 258, kTag, 0, kFwLibInvalidEvent},
      {"zero capacity",          0, 0, 0, 0, 0, kTag, 0, kFwLibInvalidParameter},
      {"signed, capacity 3",     0, 0, 0, 0, 3, kTag, 0, kFwLibInvalidParameter},
      {"wrong tag",              0, 0, 0, 0, 258, 0, 0, kFwLibInvalidParameter},
      {"scheme 2",               0, 1, 2, 0, 258, kTag, 0, kFwLibInvalidParameter},
      {"scheme 0, stage 6",      0, 1, 0, 6, 258, kTag, 0, kFwLibInvalidParameter},
      {"scheme 1, stage 4",      0, 1, 1, 4, 258, kTag, 0, kFwLibInvalidParameter},
      {"one block, stage 6",     0, 0, 0, 6, 258, kTag, 0, kFwLibInvalidEvent},
      {"position past the end",  1, 0, 0, 0, 259, kTag, 5000, kFwLibInvalidEvent},
  };
  // clang-format on
  for (const Case& c : cases) {
    ImageContext ctx(fwimage::BuildTwoBlockImage(kSpec, true), c.mode, c.tlv, c.scheme);
    ctx.context.signatureStage = c.stage;
    ctx.context.magic = c.magic;
    ctx.context.imageOffset = c.offset;
    std::array<uint8_t, 300> buffer{};
    uint32_t length = c.capacity;
    EXPECT_EQ(GetNextCommand(&ctx.context, buffer.data(), &length), c.expected) << c.name;
    EXPECT_EQ(length, 0u) << c.name;
    EXPECT_EQ(ctx.Offset(), c.offset) << c.name;
  }
  uint32_t length = 258;
  EXPECT_EQ(GetNextCommand(nullptr, nullptr, &length), kFwLibInvalidParameter);
  EXPECT_EQ(length, 0u);
}

TEST(BseqIterator, HandsOnCommandsAndRefusesMalformedRecords) {
  const auto commands = fwimage::SampleBseqCommands(12, 5);
  ImageContext whole(fwimage::BuildBseqImage(commands, true), 1);
  const Walk walk = WalkAll(whole.context, 259);
  ASSERT_EQ(walk.commands.size(), commands.size());
  for (size_t i = 0; i < commands.size(); ++i) {
    Command expected = {static_cast<uint8_t>(commands[i].opcode),
                        static_cast<uint8_t>(commands[i].opcode >> 8),
                        static_cast<uint8_t>(commands[i].params.size())};
    expected.insert(expected.end(), commands[i].params.begin(), commands[i].params.end());
    EXPECT_EQ(walk.commands[i], expected) << i;
  }

  Command longest = {0x01, 0x8E, 0xFC, 0xFF};
  longest.resize(259, 0x5A);
  struct Case {
    Command image;
    uint32_t capacity;
    FwLibStatus expected;
    uint32_t offsetAfter;
  };
  // clang-format off
  const Case cases[] = {
      {{0x02, 0x0E, 0x04, 0x01, 0x8E, 0xFC, 0x00, 0x02, 0xFF, 0x02, 0x19, 0x00}, 259,
       kFwLibImageExhausted, 12},                                  // event records only
      {{0x03, 0x00, 0x00}, 259, kFwLibInvalidEvent, 0},            // unknown record
      {{0x02, 0x0E}, 259, kFwLibInvalidEvent, 0},                  // event header cut
      {{0x02, 0x0E, 0x05, 0x01}, 259, kFwLibInvalidEvent, 0},      // event parameters cut
      {{0x01, 0x8E}, 259, kFwLibInvalidEvent, 1},                  // command header cut
      {{0x01, 0x8E, 0xFC, 0x05, 0xAA}, 259, kFwLibInvalidEvent, 1},  // parameters cut
      {{0x01, 0x8E, 0xFC, 0x00}, 2, kFwLibInvalidEvent, 1},        // capacity under 3
      {longest, 257, kFwLibInvalidEvent, 1},                       // longer than the buffer
      {longest, 258, kFwLibSuccess, 259},
  };
  // clang-format on

  for (const Case& c : cases) {
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

// Every cut of each layout, then random damage, walked by every iterator:
// each walk ends in a status, and (under the sanitizers) reads nothing
// outside the image.
TEST(Iterators, DamagedImagesEndInAStatus) {
  const std::vector<std::vector<uint8_t>> sources = {
      fwimage::BuildSfiImage({.bodyBytes = 700}),
      fwimage::BuildTwoBlockImage({.bodyBytes = 700}, true),
      fwimage::BuildBseqImage(fwimage::SampleBseqCommands(8, 3), true)};
  const auto walkEveryWay = [](const std::vector<uint8_t>& image, uint8_t scheme) {
    for (uint8_t mode = 0; mode < 4; ++mode) {
      ImageContext ctx(image, mode % 2, mode / 2, scheme);
      const Walk walk = WalkAll(ctx.context, 255);
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
