#include <gtest/gtest.h>

#include <functional>
#include <iterator>
#include <numeric>
#include <sstream>

#include "image/fw_image.h"
#include "support/child_process_posix.h"
#include "support/temp_dir.h"

namespace qrx::fwimage {
namespace {

using Bytes = std::vector<uint8_t>;

class QrxfwCli : public testing::Test {
 protected:
  // Runs qrxfw; the second argument names a file in the test's directory.
  int Qrxfw(std::vector<std::string> args) {
    if (args.size() > 1) args[1] = dir.Join(args[1]);
    args.insert(args.begin(), test::BuildProduct("tools/qrxfw"));
    return test::RunProcess(args).exitStatus;
  }
  Bytes File(const std::string& name) {
    const std::string bytes = dir.Read(name);
    return Bytes(bytes.begin(), bytes.end());
  }
  test::TempDir dir;
};

TEST_F(QrxfwCli, BuildsWhatTheLibraryBuilds) {
  ASSERT_EQ(Qrxfw({"sfi", "a.sfi", "--body-bytes", "1000", "--patch", "0x21"}), 0);
  EXPECT_EQ(File("a.sfi"), BuildSfiImage({.bodyBytes = 1000, .seed = 1, .patchNumber = 0x21}));
  ASSERT_EQ(Qrxfw({"two-block", "b.sfi", "--seed", "9"}), 0);
  EXPECT_EQ(File("b.sfi"), BuildTwoBlockImage({.bodyBytes = 4096, .seed = 9}, true));
  ASSERT_EQ(Qrxfw({"bseq", "q.bseq", "--commands", "5", "--seed", "3", "--no-events"}), 0);
  EXPECT_EQ(File("q.bseq"), BuildBseqImage(SampleBseqCommands(5, 3), false));
  ASSERT_EQ(Qrxfw({"fwdat", "c.dat", "--gap", "5", "signed:0251113701:" + dir.Join("a.sfi"),
                   "bseq:-:" + dir.Join("q.bseq"),
                   "0x0A:" + std::string(26, 'a') + ":" + dir.Join("b.sfi")}),
            0);
  std::vector<FwdatEntrySpec> entries(3);
  entries[0].matchKey = MatchKey(Bytes{2, 0x51, 0x11, 0x37, 1});
  entries[0].image = File("a.sfi");
  entries[1].kindByte = 0;
  entries[1].image = File("q.bseq");
  entries[2].kindByte = 0x0A;
  entries[2].matchKey = MatchKey(Bytes(13, 0xAA));
  entries[2].image = File("b.sfi");
  EXPECT_EQ(File("c.dat"), BuildFwdat(entries, {.entryCount = {}, .gapAfterDirectory = 5}));

  // The corruption flips one body byte: the header's checksum no longer holds.
  ASSERT_EQ(Qrxfw({"two-block", "d.sfi", "--no-second-block", "--corrupt-body"}), 0);
  const Bytes intact = BuildTwoBlockImage({}, false);
  const Bytes corrupt = File("d.sfi");
  ASSERT_EQ(corrupt.size(), intact.size());
  EXPECT_EQ(std::inner_product(intact.begin(), intact.end(), corrupt.begin(), 0, std::plus<>(),
                               std::not_equal_to<>()),
            1);
  EXPECT_NE(ReadHeaderFields(corrupt).bodyChecksum,
            BodyChecksum(std::span(corrupt).subspan(kFirstBlockSize)));
}

TEST_F(QrxfwCli, BadCommandLinesAreRefused) {
  for (const char* line :
       {"", "sfi", "build x", "sfi x --patch 256", "sfi x --seed", "sfi x extra", "fwdat x",
        "fwdat x signed:abc:x", "fwdat x nokind:00:x", "fwdat x signed:00"}) {
    std::istringstream words(line);
    EXPECT_EQ(Qrxfw({std::istream_iterator<std::string>(words), {}}), 2) << line;
  }
  EXPECT_EQ(Qrxfw({"fwdat", "x", "signed:00:" + dir.Join("missing")}), 1);
}

}  // namespace
}  // namespace qrx::fwimage
