#include "image/inspect.h"

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
  std::string out = "status " + std::to_string(RunInspect(1, argv)) + "\n";
  out += capture.Out();
  if (const size_t at = out.find(path); at != std::string::npos)
    out.replace(at, path.size(), "FILE");
  return out;
}

// Body commands by parameter length.
std::vector<uint8_t> Body(std::initializer_list<uint8_t> paramLengths) {
  std::vector<uint8_t> body;
  for (uint8_t length : paramLengths) {
    body.insert(body.end(), {0x8E, 0xFC, length});
    body.resize(body.size() + length, 0xA5);
  }
  return body;
}

const std::string kSfiBlock =
    "  command  count    offset  fragment      data   length\n"
    "        1      1         0  header         128      132\n"
    "        2      1       128  public key     252      256\n"
    "        3      1       380  public key       4        8\n"
    "        4      1       388  signature      252      256\n"
    "        5      1       640  signature        4        8\n"
    "        6      1       644  body            28       32\n";

TEST(Inspect, SfiShowsLayoutHeaderAndTheCommandsSent) {
  EXPECT_EQ(
      Inspect(BuildSfiImage({.seed = 2, .patchNumber = 3}, Body({4, 4, 8, 0, 125}))),
      "status 0\n"
      "file      FILE, 800 bytes (0.78 KiB)\n"
      "layout    signed, one signature block (SFI), body at 644, 156 bytes (0.15 KiB)\n"
      "header    kind 0x01, patch 3, body length 156, body checksum 0x14960D66 (matches the "
      "body)\n"
      "sent (SFI, or two-block with scheme 0): 7 Secure Send commands, 824 bytes (0.80 KiB)\n" +
          kSfiBlock +
          "        7      1       672  body           128      132\n"
          "  ok: image exhausted after 7 commands\n");
}

TEST(Inspect, MalformedBodyIsReportedWhereTheLoaderStops) {
  EXPECT_EQ(
      Inspect(BuildSfiImage({.seed = 2, .patchNumber = 3}, Body({4, 4, 8, 0, 250}))),
      "status 1\n"
      "file      FILE, 925 bytes (0.90 KiB)\n"
      "layout    signed, one signature block (SFI), body at 644, 281 bytes (0.27 KiB)\n"
      "header    kind 0x01, patch 3, body length 281, body checksum 0xEEF0B0E5 (matches the "
      "body)\n"
      "sent (SFI, or two-block with scheme 0): 6 Secure Send commands, 692 bytes (0.68 KiB)\n" +
          kSfiBlock +
          "  MALFORMED: stops at offset 672 (0x2A0) with status 12 (malformed image) after 6 "
          "commands\n"
          "  commands from offset 672 reach no 4-byte multiple within 252 bytes\n");
}

TEST(Inspect, ContainerShowsDirectoryAndEachEntrysImage) {
  const std::vector<BseqCommand> commands = {{0xFC8E, {1, 2, 3}}, {0xFC2F, {}}};
  const std::vector<FwdatEntrySpec> entries = {
      {.kindByte = 0x08,
       .matchKey = MatchKey(std::vector<uint8_t>{0x37, 0x10, 0x01}),
       .image = BuildBseqImage(commands, true),
       .offset = {},
       .size = {}},
      {.kindByte = 0x02, .reserved = 0x7E, .image = {1, 2, 3}, .offset = {}, .size = {}}};
  EXPECT_EQ(Inspect(BuildFwdat(entries)),
            "status 0\n"
            "file      FILE, 83 bytes (0.08 KiB)\n"
            "layout    FWDAT container: magic 0xFE33, format byte 0x01, 2 entries\n"
            "directory at 4..49\n"
            "  entry  kind         reserved    offset      size       KiB  match key\n"
            "      0  0x08 BSEQ        0x00        50        30      0.03  37 10 01 00 00 00 00 00 "
            "00 00 00 00 00\n"
            "      1  0x02 other       0x7E        80         3      0.00  00 00 00 00 00 00 00 00 "
            "00 00 00 00 00\n"
            "entry 0\n"
            "  layout    BSEQ: 2 command records, 3 event records\n"
            "  sent: 2 commands, 9 bytes (0.01 KiB)\n"
            "    command  count    offset  opcode      params   length\n"
            "          1      1         1  0xFC8E           3        6\n"
            "          2      1        15  0xFC2F           0        3\n"
            "    ok: image exhausted after 2 commands\n"
            "entry 1\n"
            "  layout    none: the loader has no iterator for entry kind 2\n");

  const char* missing[] = {"/nonexistent/qrxfw-inspect"};
  ConsoleCapture capture;
  EXPECT_EQ(RunInspect(1, missing), 2);
  EXPECT_EQ(capture.Err(), "qrxfw inspect: cannot read /nonexistent/qrxfw-inspect\n");
}

}  // namespace
}  // namespace qrx::fwtool
