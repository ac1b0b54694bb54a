#include <gtest/gtest.h>

#include "image/fw_image.h"
#include "platform/byte_order.h"
#include "support/child_process_posix.h"
#include "support/scratch_dir.h"

namespace qrx::fwimage {
namespace {

using Bytes = std::vector<uint8_t>;

int Qrxfw(std::vector<std::string> args) {
  return test::RunProgram(test::BuildProduct("tools/qrxfw"), args);
}

std::span<const uint8_t> Body(const Bytes& image, size_t at) {
  return std::span<const uint8_t>(image).subspan(at);
}

TEST(QrxfwCli, SignedImagesCarryTheirHeaderFields) {
  test::ScratchDir dir;
  ASSERT_EQ(Qrxfw({"sfi", dir.Path("a.sfi"), "--body-bytes", "1000", "--patch", "0x21"}), 0);
  ASSERT_EQ(Qrxfw({"two-block", dir.Path("b.sfi"), "--seed", "9"}), 0);
  ASSERT_EQ(Qrxfw({"two-block", dir.Path("c.sfi"), "--no-second-block"}), 0);
  ASSERT_EQ(Qrxfw({"sfi", dir.Path("d.sfi"), "--body-bytes", "1000", "--corrupt-body"}), 0);

  struct Case {
    const char* name;
    size_t bodyAt;
    uint8_t patch;
    bool checksumHolds;
  };
  for (const Case& c :
       {Case{"a.sfi", kFirstBlockSize, 0x21, true},
        Case{"b.sfi", kFirstBlockSize + kSecondBlockSize, 0, true},
        Case{"c.sfi", kFirstBlockSize, 0, true}, Case{"d.sfi", kFirstBlockSize, 0, false}}) {
    SCOPED_TRACE(c.name);
    const Bytes image = dir.Read(c.name);
    ASSERT_GT(image.size(), c.bodyAt);
    const HeaderFields first = ReadHeaderFields(image);
    EXPECT_EQ(first.kind, kFirstBlockKind);
    EXPECT_EQ(first.patchNumber, c.patch);
    EXPECT_EQ(first.bodyLength, image.size() - c.bodyAt);
    EXPECT_EQ(first.bodyChecksum == BodyChecksum(Body(image, c.bodyAt)), c.checksumHolds);
    if (c.bodyAt > kFirstBlockSize) {
      const HeaderFields second =
          ReadHeaderFields(std::span<const uint8_t>(image).subspan(kFirstBlockSize));
      EXPECT_EQ(second.kind, kSecondBlockMarker);
      EXPECT_EQ(second.bodyChecksum, first.bodyChecksum);
    }
  }
  // The corruption changes one byte and nothing else.
  const Bytes intact = dir.Read("a.sfi");
  const Bytes corrupt = dir.Read("d.sfi");
  ASSERT_EQ(intact.size(), corrupt.size());
  size_t differing = 0;
  for (size_t i = kHeaderSize; i < intact.size(); ++i) differing += intact[i] != corrupt[i];
  EXPECT_EQ(differing, 1u);
}

TEST(QrxfwCli, BseqAndContainerRoundTrip) {
  test::ScratchDir dir;
  ASSERT_EQ(Qrxfw({"bseq", dir.Path("p.bseq"), "--commands", "5"}), 0);
  ASSERT_EQ(Qrxfw({"bseq", dir.Path("q.bseq"), "--commands", "5", "--no-events"}), 0);
  const Bytes withEvents = dir.Read("p.bseq");
  const Bytes bare = dir.Read("q.bseq");
  EXPECT_EQ(withEvents, BuildBseqImage(SampleBseqCommands(5, 1), true));
  EXPECT_EQ(bare, BuildBseqImage(SampleBseqCommands(5, 1), false));

  ASSERT_EQ(Qrxfw({"sfi", dir.Path("s.sfi"), "--body-bytes", "300"}), 0);
  ASSERT_EQ(Qrxfw({"fwdat", dir.Path("c.dat"), "--gap", "5",
                   "signed:0251113701:" + dir.Path("s.sfi"), "bseq:-:" + dir.Path("q.bseq"),
                   "0x0A:00112233445566778899aabbcc:" + dir.Path("p.bseq")}),
            0);
  const Bytes container = dir.Read("c.dat");
  ASSERT_GE(container.size(), 4u + 3 * 23);
  EXPECT_EQ(ReadLe16(container, 0), 0xFE33);
  EXPECT_EQ(container[2], 1);
  EXPECT_EQ(container[3], 3);
  const struct {
    uint8_t kind;
    Bytes key;
    Bytes image;
  } expected[] = {{1, {0x02, 0x51, 0x11, 0x37, 0x01}, dir.Read("s.sfi")},
                  {0, {}, bare},
                  {0x0A,
                   {0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88, 0x99, 0xAA, 0xBB, 0xCC},
                   withEvents}};
  for (size_t i = 0; i < 3; ++i) {
    const size_t at = 4 + 23 * i;
    EXPECT_EQ(container[at], expected[i].kind);
    const uint32_t offset = ReadLe32(container, at + 2);
    const uint32_t size = ReadLe32(container, at + 6);
    ASSERT_EQ(size, expected[i].image.size());
    ASSERT_LE(offset + size, container.size());
    EXPECT_EQ(Bytes(container.begin() + offset, container.begin() + offset + size),
              expected[i].image);
    Bytes key = expected[i].key;
    key.resize(13, 0);
    EXPECT_EQ(Bytes(container.begin() + at + 10, container.begin() + at + 23), key);
  }
  EXPECT_EQ(ReadLe32(container, 4 + 2), 4u + 3 * 23 + 5);  // the gap comes first
}

TEST(QrxfwCli, BadCommandLinesAreRefused) {
  test::ScratchDir dir;
  const std::vector<std::vector<std::string>> cases = {
      {},
      {"sfi"},
      {"build", dir.Path("x")},
      {"sfi", dir.Path("x"), "--patch", "256"},
      {"sfi", dir.Path("x"), "--seed"},
      {"sfi", dir.Path("x"), "extra"},
      {"fwdat", dir.Path("x")},
      {"fwdat", dir.Path("x"), "signed:abc:" + dir.Path("x")},
      {"fwdat", dir.Path("x"), "nokind:00:" + dir.Path("x")},
      {"fwdat", dir.Path("x"), "signed:00"},
  };
  for (const auto& args : cases) EXPECT_EQ(Qrxfw(args), 2) << (args.empty() ? "" : args[0]);
  EXPECT_EQ(Qrxfw({"fwdat", dir.Path("x"), "signed:00:" + dir.Path("missing")}), 1);
  EXPECT_EQ(Qrxfw({"--help"}), 0);
}

}  // namespace
}  // namespace qrx::fwimage
