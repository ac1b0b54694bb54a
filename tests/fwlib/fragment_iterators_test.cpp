#include "fwlib/fragment_iterators.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <span>

#include "fwlib_fixture.h"
#include "image/fw_image.h"

namespace qrx::test {
namespace {

// Secure Send of image bytes [from, from + size).
struct Fragment {
  uint8_t type;
  size_t from, size;
};
Bytes SecureSend(std::span<const uint8_t> image, const Fragment& f) {
  Bytes command = {0x09, 0xFC, static_cast<uint8_t>(f.size + 1), f.type};
  command.resize(4 + f.size);
  std::copy_n(image.begin() + f.from, f.size, command.begin() + 4);
  return command;
}

const fwimage::SignedImageSpec kSpec = {.seed = 11};

// Body commands with these parameter lengths.
Bytes Body(std::initializer_list<uint8_t> paramLengths) {
  Bytes body;
  for (uint8_t length : paramLengths) {
    body.insert(body.end(), {0x8E, 0xFC, length});
    body.resize(body.size() + length, length);
  }
  return body;
}

// The block the scheme chooses, then the body in groups of whole commands
// that close on a 4-byte multiple within 252 bytes.
TEST(SignedIterators, SendTheChosenBlockThenTheBodyInGroups) {
  const std::vector<Fragment> first = {
      {0x00, 0, 128}, {0x03, 128, 252}, {0x03, 380, 4}, {0x02, 388, 252}, {0x02, 640, 4}};
  const std::vector<Fragment> second = {{0x00, 644, 128}, {0x03, 772, 96}, {0x02, 868, 96}};
  const auto then = [](std::vector<Fragment> block, std::vector<Fragment> body) {
    block.insert(block.end(), body.begin(), body.end());
    return block;
  };
  const Bytes body28 = Body({4, 4, 8, 0});
  const auto dual = fwimage::BuildTwoBlockImage(kSpec, true, body28);
  const auto sfi = [](const Bytes& body) { return fwimage::BuildSfiImage(kSpec, body); };
  struct Case {
    const char* name;
    Bytes image;
    uint8_t tlv, scheme;
    std::vector<Fragment> sent;  // the walk stops where the last one ends
    FwLibStatus end = kFwLibImageExhausted;
  };
  // clang-format off
  const Case cases[] = {
      {"644-byte image", sfi({}), 0, 0, first},
      {"28-byte group", sfi(body28), 0, 0, then(first, {{1, 644, 28}})},
      {"4 then 252", sfi(Body({1, 249})), 0, 0, then(first, {{1, 644, 4}, {1, 648, 252}})},
      {"cannot close within 252", sfi(Body({246, 2})), 0, 0, first, kFwLibInvalidEvent},
      {"last group cannot close", sfi(Body({1, 0})), 0, 0, then(first, {{1, 644, 4}}),
       kFwLibInvalidEvent},
      {"two blocks, scheme 0", dual, 1, 0, then(first, {{1, 964, 28}})},
      {"two blocks, scheme 1", dual, 1, 1, then(second, {{1, 964, 28}})},
      {"short two-block image", fwimage::BuildTwoBlockImage(kSpec, false, body28), 1, 0,
       then(first, {{1, 644, 28}})},
  };
  // clang-format on
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    ImageContext ctx(c.image, 0, c.tlv, c.scheme);
    const Walk walk = WalkAll(ctx.context);
    std::vector<Bytes> expected;
    for (const Fragment& f : c.sent) expected.push_back(SecureSend(c.image, f));
    EXPECT_EQ(walk.commands, expected);
    EXPECT_EQ(walk.end, c.end);
    EXPECT_EQ(Get(ctx.context.imageOffset), c.sent.back().from + c.sent.back().size);
  }
}

TEST(Iterators, RefuseWhatTheyCannotServe) {
  Bytes longest = {0x01, 0x8E, 0xFC, 0xFF};  // a 258-byte command
  longest.resize(259, 0x5A);
  const Bytes eventsOnly = {2, 0x0E, 4, 1, 0x8E, 0xFC, 0, 2, 0xFF, 2, 0x19, 0};
  struct Case {
    const char* name;
    Bytes image;
    uint8_t mode;
    uint32_t capacity;
    FwLibStatus end;
    size_t commands;
    uint32_t offset;  // where the walk stops
  };
  // clang-format off
  const Case cases[] = {
      {"no iterator for mode 2", fwimage::BuildSfiImage(kSpec), 2, 258, 12, 0, 0},
      {"bseq: event records only", eventsOnly, 1, 259, 4, 0, 12},
      {"bseq: command over capacity", longest, 1, 257, 12, 0, 1},
      {"bseq: command at capacity", longest, 1, 258, 4, 1, 259},
  };
  // clang-format on
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    ImageContext ctx(c.image, c.mode);
    const Walk walk = WalkAll(ctx.context, c.capacity);
    EXPECT_EQ(walk.end, c.end);
    EXPECT_EQ(walk.commands.size(), c.commands);
    EXPECT_EQ(Get(ctx.context.imageOffset), c.offset);
  }
}

// Every cut of each layout, then random damage, walked by every iterator:
// each walk ends in a status, and (under the sanitizers) reads nothing
// outside the image.
TEST(Iterators, DamagedImagesEndInAStatus) {
  const std::vector<Bytes> sources = {
      fwimage::BuildSfiImage({.bodyBytes = 700}),
      fwimage::BuildTwoBlockImage({.bodyBytes = 700}, true),
      fwimage::BuildBseqImage(fwimage::SampleBseqCommands(8, 3), true)};
  const auto walkEveryWay = [](const Bytes& image, uint8_t scheme) {
    for (uint8_t mode = 0; mode < 4; ++mode) {
      ImageContext ctx(image, mode % 2, mode / 2, scheme);
      const Walk walk = WalkAll(ctx.context);
      ASSERT_LE(Get(ctx.context.imageOffset), image.size());
      for (const Bytes& c : walk.commands) ASSERT_LE(c.size(), 258u);
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
}  // namespace qrx::test
