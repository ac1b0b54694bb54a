#include "image/fw_image.h"

#include <gtest/gtest.h>

#include <string_view>

namespace qrx::fwimage {
namespace {

// The loader's grouping rule, restated independently: whole commands,
// closing at the first total that is a multiple of 4, never above 252.
std::vector<size_t> GroupSizes(std::span<const uint8_t> body) {
  std::vector<size_t> groups;
  for (size_t at = 0, total = 0; at < body.size(); at += total, total = 0) {
    do {
      if (at + total + 3 > body.size()) return {};
      total += 3 + body[at + total + 2];
      if (total > kMaxFragmentData || at + total > body.size()) return {};
    } while (total % 4 != 0);
    groups.push_back(total);
  }
  return groups;
}

TEST(FwImage, BodiesGroupIntoWholeFourByteFragmentsOfEveryShape) {
  const auto body = BuildBody(1700, 1);
  const auto groups = GroupSizes(body);
  ASSERT_GE(groups.size(), 10u);
  EXPECT_EQ(std::vector<size_t>(groups.begin(), groups.begin() + 10),
            (std::vector<size_t>{252, 252, 28, 252, 128, 252, 4, 252, 12, 252}));
  EXPECT_GE(body.size(), 1700u);
}

TEST(FwImage, ChecksumIsTheUsualCrc32) {
  constexpr std::string_view kCheck = "123456789";
  EXPECT_EQ(BodyChecksum(std::span(reinterpret_cast<const uint8_t*>(kCheck.data()), kCheck.size())),
            0xCBF43926u);
}

}  // namespace
}  // namespace qrx::fwimage
