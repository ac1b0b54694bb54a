#include "image/inspect.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <string>

#include "image/fw_image.h"
#include "platform/console.h"

namespace qrx::fwtool {
namespace {

using namespace qrx::fwimage;

// A file in the temp directory for the length of one test.
class TempFile {
 public:
  explicit TempFile(const std::vector<uint8_t>& bytes)
      : path_(std::filesystem::temp_directory_path() /
              ("qrxfw-inspect-" + std::to_string(std::random_device{}()))) {
    std::ofstream out(path_, std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()),
              static_cast<std::streamsize>(bytes.size()));
  }
  ~TempFile() { std::filesystem::remove(path_); }
  std::string Path() const { return path_.string(); }

 private:
  std::filesystem::path path_;
};

struct Inspection {
  int status;
  std::string out;  // the file's path shown as FILE
  std::string err;
};

Inspection Inspect(const std::vector<uint8_t>& bytes) {
  TempFile file(bytes);
  const std::string path = file.Path();
  const char* argv[] = {path.c_str()};
  ConsoleCapture capture;
  const int status = RunInspect(1, argv);
  std::string out = capture.Out();
  if (const size_t at = out.find(path); at != std::string::npos)
    out.replace(at, path.size(), "FILE");
  return {status, out, capture.Err()};
}

TEST(Inspect, SfiShowsLayoutHeaderAndEveryFragmentRun) {
  const Inspection result = Inspect(BuildSfiImage({.bodyBytes = 600, .seed = 3, .patchNumber = 2}));
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(result.out,
            "file      FILE, 1428 bytes (1.39 KiB)\n"
            "layout    signed, one signature block (SFI), body at 644, 784 bytes (0.77 KiB)\n"
            "header    kind 0x01, patch 2, body length 784, body checksum 0x06F43DA4 (matches the "
            "body)\n"
            "sent (SFI, or two-block with scheme 0): 9 Secure Send commands, 1460 bytes (1.43 "
            "KiB)\n"
            "  command  count    offset  fragment      data   length\n"
            "        1      1         0  header         128      132\n"
            "        2      1       128  public key     252      256\n"
            "        3      1       380  public key       4        8\n"
            "        4      1       388  signature      252      256\n"
            "        5      1       640  signature        4        8\n"
            "        6      2       644  body           252      256\n"
            "        8      1      1148  body            28       32\n"
            "        9      1      1176  body           252      256\n"
            "  ok: image exhausted after 9 commands\n");
}

TEST(Inspect, ContainerShowsDirectoryAndEachEntrysImage) {
  const uint8_t signedKey[] = {0x37, 0x10, 0x01, 0x02};
  const uint8_t bseqKey[] = {0x37, 0x11};
  std::vector<FwdatEntrySpec> entries(3);
  entries[0].kindByte = 0x01;
  entries[0].matchKey = MatchKey(signedKey);
  entries[0].image = BuildSfiImage({.bodyBytes = 300, .seed = 5});
  entries[1].kindByte = 0x00;
  entries[1].matchKey = MatchKey(bseqKey);
  entries[1].image = BuildBseqImage(SampleBseqCommands(3, 1), true);
  entries[2].kindByte = 0x0A;
  entries[2].reserved = 0x7E;
  entries[2].image = {1, 2, 3};
  const Inspection result = Inspect(BuildFwdat(entries));
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out,
            "file      FILE, 1766 bytes (1.72 KiB)\n"
            "layout    FWDAT container: magic 0xFE33, format byte 0x01, 3 entries\n"
            "directory at 4..72\n"
            "  entry  kind         reserved    offset      size       KiB  match key\n"
            "      0  0x01 signed      0x00        73      1148      1.12  37 10 01 02 00 00 00 "
            "00 00 00 00 00 00\n"
            "      1  0x00 BSEQ        0x00      1221       542      0.53  37 11 00 00 00 00 00 "
            "00 00 00 00 00 00\n"
            "      2  0x0A other       0x7E      1763         3      0.00  00 00 00 00 00 00 00 "
            "00 00 00 00 00 00\n"
            "entry 0\n"
            "  layout    signed, one signature block (SFI), body at 644, 504 bytes (0.49 KiB)\n"
            "  header    kind 0x01, patch 0, body length 504, body checksum 0x26BDCA21 (matches "
            "the body)\n"
            "  sent (SFI, or two-block with scheme 0): 7 Secure Send commands, 1172 bytes (1.14 "
            "KiB)\n"
            "    command  count    offset  fragment      data   length\n"
            "          1      1         0  header         128      132\n"
            "          2      1       128  public key     252      256\n"
            "          3      1       380  public key       4        8\n"
            "          4      1       388  signature      252      256\n"
            "          5      1       640  signature        4        8\n"
            "          6      2       644  body           252      256\n"
            "    ok: image exhausted after 7 commands\n"
            "entry 1\n"
            "  layout    BSEQ: 3 command records, 4 event records\n"
            "  sent: 3 commands, 513 bytes (0.50 KiB)\n"
            "    command  count    offset  opcode      params   length\n"
            "          1      1         1  0xFC8E           0        3\n"
            "          2      1        12  0xFC8E         255      258\n"
            "          3      1       278  0xFC2F         249      252\n"
            "    ok: image exhausted after 3 commands\n"
            "entry 2\n"
            "  layout    none: the loader has no iterator for entry kind 2\n");
}

TEST(Inspect, MalformedBodyIsReportedWhereTheLoaderStops) {
  auto body = BuildBody(600, 3);
  body.insert(body.begin() + 252, {0x8E, 0xFC, 0x01, 0x00, 0x8E, 0xFC, 0x00});  // 4, then 3 + ...
  const Inspection result = Inspect(BuildSfiImage({.seed = 3}, body));
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out,
            "file      FILE, 1435 bytes (1.40 KiB)\n"
            "layout    signed, one signature block (SFI), body at 644, 791 bytes (0.77 KiB)\n"
            "header    kind 0x01, patch 0, body length 791, body checksum 0xB62522E0 (matches the "
            "body)\n"
            "sent (SFI, or two-block with scheme 0): 7 Secure Send commands, 924 bytes (0.90 "
            "KiB)\n"
            "  command  count    offset  fragment      data   length\n"
            "        1      1         0  header         128      132\n"
            "        2      1       128  public key     252      256\n"
            "        3      1       380  public key       4        8\n"
            "        4      1       388  signature      252      256\n"
            "        5      1       640  signature        4        8\n"
            "        6      1       644  body           252      256\n"
            "        7      1       896  body             4        8\n"
            "  MALFORMED: stops at offset 900 (0x384) with status 12 (malformed image) after 7 "
            "commands\n"
            "  commands from offset 900 reach no 4-byte multiple within 252 bytes\n");
}

TEST(Inspect, ExitStatusTellsMalformedAndUnreadableApart) {
  std::vector<FwdatEntrySpec> pastEnd(1);
  pastEnd[0].image = BuildSfiImage({.bodyBytes = 1});
  pastEnd[0].size = 5000;
  auto truncatedBseq = BuildBseqImage(SampleBseqCommands(4, 2), true);
  truncatedBseq.pop_back();
  FwdatSpec formatTwo;
  formatTwo.formatByte = 0x02;
  struct Case {
    const char* name;
    std::vector<uint8_t> bytes;
    int status;
    const char* mark;  // a line the report must carry
  };
  const Case cases[] = {
      {"entry past the end", BuildFwdat(pastEnd), 1, "runs past the end of the file"},
      {"no entries", BuildFwdat({}), 1, "MALFORMED: no entries"},
      {"wrong directory format", BuildFwdat(pastEnd, formatTwo), 1, "format 2"},
      {"truncated BSEQ", truncatedBseq, 1, "record at offset"},
      {"empty file", {}, 1, "layout    empty"},
      {"two blocks", BuildTwoBlockImage({.bodyBytes = 1}, true), 0, "sent with scheme 1: 4"},
  };
  for (const Case& c : cases) {
    const Inspection result = Inspect(c.bytes);
    EXPECT_EQ(result.status, c.status) << c.name << "\n" << result.out;
    EXPECT_NE(result.out.find(c.mark), std::string::npos) << c.name << "\n" << result.out;
  }
  const char* missing[] = {"/nonexistent/qrxfw-inspect"};
  ConsoleCapture capture;
  EXPECT_EQ(RunInspect(1, missing), 2);
  EXPECT_EQ(capture.Err(), "qrxfw inspect: cannot read /nonexistent/qrxfw-inspect\n");
}

}  // namespace
}  // namespace qrx::fwtool
