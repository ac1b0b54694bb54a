#include "image/firmware_report.h"

#include <gtest/gtest.h>

#include "image/fw_image.h"
#include "platform/console.h"
#include "support/temp_dir.h"

namespace qrx::fwtool {
namespace {

using namespace qrx::fwimage;

// The exit status, then what inspect printed, the file's path shown as FILE.
std::string Inspect(const std::vector<uint8_t>& bytes) {
  test::TempDir dir;
  const std::string path = dir.WriteFile("image", bytes);
  const char* argv[] = {path.c_str()};
  ConsoleCapture capture;
  std::string out = "status " + std::to_string(RunInspect(1, argv)) + "\n" + capture.Out();
  out.replace(out.find(path), path.size(), "FILE");  // throws when the path is not shown
  return out;
}

const std::string kSignedPrefix = R"(  command  count    offset  fragment      data   length
        1      1         0  header         128      132
        2      1       128  public key     252      256
        3      1       380  public key       4        8
        4      1       388  signature      252      256
        5      1       640  signature        4        8
)";

// The generated body takes groups of every shape, down to 4 bytes.
TEST(Inspect, SfiShowsLayoutHeaderAndTheCommandsSent) {
  EXPECT_EQ(Inspect(BuildSfiImage({.bodyBytes = 1200, .seed = 1, .patchNumber = 3})),
            R"(status 0
file      FILE, 2064 bytes (2.02 KiB)
layout    signed, one signature block (SFI), body at 644, 1420 bytes (1.39 KiB)
header    kind 0x01, patch 3, body length 1420, body checksum 0xBA1EE319 (matches the body)
sent (SFI, or two-block with scheme 0): 13 Secure Send commands, 2112 bytes (2.06 KiB)
)" + kSignedPrefix +
                R"(        6      2       644  body           252      256
        8      1      1148  body            28       32
        9      1      1176  body           252      256
       10      1      1428  body           128      132
       11      1      1556  body           252      256
       12      1      1808  body             4        8
       13      1      1812  body           252      256
  ok: image exhausted after 13 commands
)");
}

TEST(Inspect, MalformedBodyIsReportedWhereTheLoaderStops) {
  std::vector<uint8_t> body = {0x8E, 0xFC, 250};  // one command longer than a fragment holds
  body.resize(253, 0xA5);
  EXPECT_EQ(
      Inspect(BuildSfiImage({.seed = 2, .patchNumber = 3}, body)),
      R"(status 1
file      FILE, 897 bytes (0.88 KiB)
layout    signed, one signature block (SFI), body at 644, 253 bytes (0.25 KiB)
header    kind 0x01, patch 3, body length 253, body checksum 0xA424E528 (matches the body)
sent (SFI, or two-block with scheme 0): 5 Secure Send commands, 660 bytes (0.64 KiB)
)" + kSignedPrefix +
          R"(  MALFORMED: stops at offset 644 (0x284) with status 12 (malformed image) after 5 commands
  commands from offset 644 reach no 4-byte multiple within 252 bytes
)");
}

TEST(Inspect, ContainerShowsDirectoryAndEachEntrysImage) {
  const std::vector<BseqCommand> commands = {{0xFC8E, {1, 2, 3}}, {0xFC2F, {}}};
  const std::vector<uint8_t> bseq = BuildBseqImage(commands, true);
  // Kind byte, reserved byte, match key, image; placed one after the other.
  const std::vector<FwdatEntrySpec> entries = {
      {0x08, 0x00, MatchKey(std::vector<uint8_t>{0x37, 0x10, 0x01}), bseq, {}, {}},
      {0x02, 0x7E, {}, {1, 2, 3}, {}, {}}};
  EXPECT_EQ(Inspect(BuildFwdat(entries)), R"(status 0
file      FILE, 83 bytes (0.08 KiB)
layout    FWDAT container: magic 0xFE33, format byte 0x01, 2 entries
directory at 4..49
  entry  kind         reserved    offset      size       KiB  match key
      0  0x08 BSEQ        0x00        50        30      0.03  37 10 01 00 00 00 00 00 00 00 00 00 00
      1  0x02 other       0x7E        80         3      0.00  00 00 00 00 00 00 00 00 00 00 00 00 00
entry 0
  layout    BSEQ: 2 command records, 3 event records
  sent: 2 commands, 9 bytes (0.01 KiB)
    command  count    offset  opcode      params   length
          1      1         1  0xFC8E           3        6
          2      1        15  0xFC2F           0        3
    ok: image exhausted after 2 commands
entry 1
  layout    none: the loader has no iterator for entry kind 2
)");
}

}  // namespace
}  // namespace qrx::fwtool
