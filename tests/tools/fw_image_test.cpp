#include "image/fw_image.h"

#include <gtest/gtest.h>

#include <string_view>

#include "platform/byte_order.h"

namespace qrx::fwimage {
namespace {

// The loader's grouping rule, restated independently: whole commands,
// closing at the first total that is a multiple of 4, never above 252.
std::vector<size_t> GroupSizes(std::span<const uint8_t> body) {
  std::vector<size_t> groups;
  size_t at = 0;
  while (at < body.size()) {
    size_t total = 0;
    do {
      if (at + total + 3 > body.size()) return {};
      total += 3 + body[at + total + 2];
      if (total > kMaxFragmentData || at + total > body.size()) return {};
    } while (total % 4 != 0);
    groups.push_back(total);
    at += total;
  }
  return groups;
}

TEST(FwImage, BodiesGroupIntoWholeFourByteFragments) {
  for (uint32_t target : {1u, 252u, 4096u, 1u << 20}) {
    const auto body = BuildBody(target, 7);
    ASSERT_GE(body.size(), target);
    const auto groups = GroupSizes(body);
    ASSERT_FALSE(groups.empty()) << target;
    size_t sum = 0;
    for (size_t g : groups) sum += g;
    EXPECT_EQ(sum, body.size());
  }
  // The first groups show every shape the cycle promises.
  const auto groups = GroupSizes(BuildBody(1700, 1));
  EXPECT_EQ(std::vector<size_t>(groups.begin(), groups.begin() + 10),
            (std::vector<size_t>{252, 252, 28, 252, 128, 252, 4, 252, 12, 252}));
}

TEST(FwImage, SignedLayoutsCarryTheirBlocksAndHeaderFields) {
  const SignedImageSpec spec{.bodyBytes = 600, .seed = 3, .patchNumber = 9};
  const auto body = BuildBody(spec.bodyBytes, spec.seed);
  const auto sfi = BuildSfiImage(spec);
  const auto dual = BuildTwoBlockImage(spec, true);
  const auto shortDual = BuildTwoBlockImage(spec, false);

  ASSERT_EQ(sfi.size(), kFirstBlockSize + body.size());
  ASSERT_EQ(dual.size(), kFirstBlockSize + kSecondBlockSize + body.size());
  EXPECT_EQ(shortDual, sfi);
  EXPECT_TRUE(std::equal(body.begin(), body.end(), sfi.begin() + kFirstBlockSize));
  EXPECT_EQ(dual[kFirstBlockSize], kSecondBlockMarker);
  EXPECT_NE(sfi[kFirstBlockSize], kSecondBlockMarker);

  for (size_t headerAt : {size_t{0}, kFirstBlockSize}) {
    const auto fields = ReadHeaderFields(std::span(dual).subspan(headerAt));
    EXPECT_EQ(fields.patchNumber, 9);
    EXPECT_EQ(fields.bodyLength, body.size());
    EXPECT_EQ(fields.bodyChecksum, BodyChecksum(body));
  }
  // The header reads as a 4-byte first command whose following byte is the patch number.
  EXPECT_EQ(sfi[3 + sfi[kHeaderFirstLengthOffset]], 9);
}

TEST(FwImage, ChecksumIsTheUsualCrc32) {
  constexpr std::string_view kCheck = "123456789";
  EXPECT_EQ(BodyChecksum(std::span(reinterpret_cast<const uint8_t*>(kCheck.data()), kCheck.size())),
            0xCBF43926u);
}

TEST(FwImage, BseqRecordsFollowEachCommandWithItsEvents) {
  const std::vector<BseqCommand> commands = {{0xFC8E, {0xAA}}, {0xFC2F, {}}};
  EXPECT_EQ(BuildBseqImage(commands, true),
            (std::vector<uint8_t>{0x01, 0x8E, 0xFC, 0x01, 0xAA, 0x02, 0x0E, 0x04, 0x01, 0x8E,
                                  0xFC, 0x00, 0x01, 0x2F, 0xFC, 0x00, 0x02, 0x0E, 0x04, 0x01,
                                  0x2F, 0xFC, 0x00, 0x02, 0xFF, 0x02, 0x19, 0x00}));
  EXPECT_EQ(BuildBseqImage(commands, false),
            (std::vector<uint8_t>{0x01, 0x8E, 0xFC, 0x01, 0xAA, 0x01, 0x2F, 0xFC, 0x00}));
}

TEST(FwImage, FwdatDirectoryPointsAtItsImages) {
  const std::array<uint8_t, 2> leading = {0x37, 0x10};
  std::vector<FwdatEntrySpec> entries(2);
  entries[0].kindByte = 0x09;
  entries[0].reserved = 0x7E;
  entries[0].matchKey = MatchKey(leading);
  entries[0].image = {1, 2, 3};
  entries[1].kindByte = 0;
  entries[1].image = {4, 5};
  entries[1].offset = 100;
  entries[1].size = 50;
  FwdatSpec spec;
  spec.entryCount = 7;
  spec.gapAfterDirectory = 5;
  const auto file = BuildFwdat(entries, spec);

  EXPECT_EQ(ReadLe16(file, 0), kFwdatMagic);
  EXPECT_EQ(file[2], kFwdatFormat);
  EXPECT_EQ(file[3], 7);
  const size_t first = 4 + 2 * kFwdatEntrySize + 5;
  EXPECT_EQ(std::vector<uint8_t>(file.begin() + 4, file.begin() + 16),
            (std::vector<uint8_t>{0x09, 0x7E, static_cast<uint8_t>(first), 0, 0, 0, 3, 0, 0, 0,
                                  0x37, 0x10}));
  EXPECT_EQ(ReadLe32(file, 4 + kFwdatEntrySize + 2), 100u);
  EXPECT_EQ(ReadLe32(file, 4 + kFwdatEntrySize + 6), 50u);
  EXPECT_EQ(file.size(), 102u);
  EXPECT_EQ(file[first + 2], 3);
  EXPECT_EQ(file[101], 5);
}

}  // namespace
}  // namespace qrx::fwimage
