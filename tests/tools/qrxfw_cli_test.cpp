#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "image/fw_image.h"
#include "support/child_process_posix.h"
#include "support/temp_dir.h"

namespace qrx::fwimage {
namespace {

using Bytes = std::vector<uint8_t>;

class QrxfwCli : public testing::Test {
 protected:
  // Runs qrxfw with the words of line; the one after the subcommand names a
  // file in the test's directory.
  int Qrxfw(const std::string& line) {
    std::vector<std::string> args = {test::BuildProduct("tools/qrxfw")};
    std::istringstream words(line);
    for (std::string word; words >> word;) args.push_back(args.size() == 2 ? dir.Join(word) : word);
    return test::RunProcess(args).exitStatus;
  }
  Bytes File(const std::string& name) {
    const std::string bytes = dir.Read(name);
    return Bytes(bytes.begin(), bytes.end());
  }
  test::TempDir dir;
};

TEST_F(QrxfwCli, BuildsWhatTheLibraryBuilds) {
  ASSERT_EQ(Qrxfw("sfi a.sfi --body-bytes 1000 --patch 0x21"), 0);
  EXPECT_EQ(File("a.sfi"), BuildSfiImage({.bodyBytes = 1000, .seed = 1, .patchNumber = 0x21}));
  ASSERT_EQ(Qrxfw("bseq q.bseq --commands 5 --seed 3 --no-events"), 0);
  EXPECT_EQ(File("q.bseq"), BuildBseqImage(SampleBseqCommands(5, 3), false));
  // One body byte is flipped after the header's checksum was written.
  ASSERT_EQ(Qrxfw("two-block b.sfi --corrupt-body"), 0);
  const Bytes intact = BuildTwoBlockImage({}, true);
  Bytes corrupt = File("b.sfi");
  const size_t at = std::ranges::mismatch(corrupt, intact).in1 - corrupt.begin();
  EXPECT_GE(at, kFirstBlockSize + kSecondBlockSize);
  corrupt.at(at) = intact.at(at);  // throws when nothing was flipped
  EXPECT_EQ(corrupt, intact);

  ASSERT_EQ(Qrxfw("fwdat c.dat --gap 5 signed:0251113701:" + dir.Join("a.sfi") + " bseq:-:" +
                  dir.Join("q.bseq") + " 0x0A:" + std::string(26, 'a') + ":" + dir.Join("b.sfi")),
            0);
  // Kind byte, reserved byte, match key, image; placed one after the other.
  const std::vector<FwdatEntrySpec> entries = {
      {1, 0, MatchKey(Bytes{2, 0x51, 0x11, 0x37, 1}), File("a.sfi"), {}, {}},
      {0, 0, {}, File("q.bseq"), {}, {}},
      {0x0A, 0, MatchKey(Bytes(13, 0xAA)), File("b.sfi"), {}, {}}};
  EXPECT_EQ(File("c.dat"), BuildFwdat(entries, {.entryCount = {}, .gapAfterDirectory = 5}));
}

TEST_F(QrxfwCli, BadCommandLinesAreRefused) {
  for (const char* line :
       {"", "sfi", "build x", "sfi x --patch 256", "sfi x --seed", "sfi x extra", "fwdat x",
        "fwdat x signed:abc:x", "fwdat x nokind:00:x", "fwdat x signed:00"}) {
    EXPECT_EQ(Qrxfw(line), 2) << line;
  }
  EXPECT_EQ(Qrxfw("fwdat x signed:00:" + dir.Join("missing")), 1);
}

}  // namespace
}  // namespace qrx::fwimage
