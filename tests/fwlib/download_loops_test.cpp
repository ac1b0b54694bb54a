#include "fwlib/download_loops.h"

#include <gtest/gtest.h>

#include <string>

#include "app/options.h"
#include "fwlib_fixture.h"
#include "hci/hci_exchange.h"
#include "platform/console.h"
#include "support/fake_controller.h"

namespace qrx::test {
namespace {

const std::string kModeEvent = "EVT: CommandComplete <Manufacturer Mode> ";
const std::string kEnterSent = "CMD: Enter Manufacturer Mode             [OK]\n" + kModeEvent;
const std::string kExitSent = "CMD: Exit Manufacturer Mode              [OK]\n" + kModeEvent;
const std::string kEnter = kEnterSent + "[OK]\n", kExit = kExitSent + "[OK]\n";

// Lines "<head>#0<tail>" to "<head>#count<tail>", `between` after all but the last.
std::string Numbered(int count, const std::string& head, const std::string& tail,
                     const std::string& between = "") {
  std::string text;
  for (int i = 0; i <= count; ++i)
    text += head + std::to_string(i) + tail + (i < count ? between : "");
  return text;
}

// A UART run with a fake controller behind it.
class DownloadLoops : public ::testing::Test {
 protected:
  void SetUp() override { SetActiveTransport(&fake); }
  void TearDown() override {
    SetActiveTransport(nullptr);
    g_runOptions = RunOptions{};
    RestoreExitManufacturerModeCommand();
  }
  FakeController fake;
  ConsoleCapture console;
};

// The three loops in one table: the whole transcript and the status. What
// they send is checked in the end-to-end command logs.
TEST_F(DownloadLoops, SendTheImageAndJudgeEveryAnswer) {
  const auto sfi = fwimage::BuildSfiImage({}, {});  // five fragments
  const auto bseq = fwimage::BuildBseqImage(
      std::vector<fwimage::BseqCommand>{{0xFC8E, {1, 2, 3}}, {0xFC2F, {}}, {0xFC8B, {9}}}, true);
  enum Loop { kAcknowledged, kNocc, kBseq, kBseqInMode };
  constexpr int kLast = 98, kNotSent = 99;  // the completion event; the third send fails
  enum Flags { kVerbose = 1, kSkipReset = 2 };
  struct Case {
    const char* name;
    Loop loop;
    FwLibStatus status;
    std::string transcript;
    int at = -1;  // the command (from 0) whose answer the replies replace
    std::vector<Reply> replies = {};
    int flags = 0;
  };
  const std::string reset = "CMD: Norix HCI Reset                     [OK]\n";
  const std::string unknown = "Unexpected Event Received! Event Code: 0x04\n";
  const Reply silence = {{}, -1};
  // clang-format off
  const Case cases[] = {
      {"plain", kAcknowledged, 0, reset},
      {"-v", kAcknowledged, 0, Numbered(5, "SFI fragment #", " downloading...\n",
       "SFI fragment download complete.\n") + reset, -1, {}, kVerbose},
      {"SKIP_RESET", kAcknowledged, 0, "", -1, {}, kSkipReset},
      {"-nocc -v", kNocc, 0, Numbered(5, "SFI fragment #", " downloading \n") + reset, -1, {},
       kVerbose},
      {"high opcode byte not compared", kAcknowledged, 0, reset, 2, {{CommandComplete(9, 0x3C)}}},
      {"send fails", kAcknowledged, 14, "QRXBPLSendCommand failed!\n", kNotSent},
      {"no answer", kAcknowledged, 12, "QRXBPLRecvCommand failed!\n", 2, {silence}},
      {"short event", kAcknowledged, 12, "Invalid event received! Len: 3\n", 2, {{{4, 0x0E, 1}}}},
      {"other event code", kAcknowledged, 12, unknown, 2, {{{4, 0x0F, 4, 1, 0x09, 0xFC, 0}}}},
      {"another command", kAcknowledged, 12, "Unexpected HCI Event! OCF=0x05", 2,
       {{CommandComplete(0x05, 0xFC)}}},
      {"failed status", kAcknowledged, 12, "HCI Command Complete event failed! status: 0x1f\n", 2,
       {{CommandComplete(0x09, 0xFC, 0x1F)}}},
      {"no completion", kAcknowledged, 12, "QRXBPLRecvCommand is failed!\n", kLast, {silence}},
      {"-nocc, completion not vendor", kNocc, 12, unknown, kLast, {{CommandComplete(9, 0xFC)}}},
      {"other vendor event", kAcknowledged, 12, "Unexpected HCI ID! Evt ID=0x05\n", kLast,
       {{VendorEvent(0x05)}}},
      {"completion failed", kAcknowledged, 12, "HCI event failed! status: 0x03\n", kLast,
       {{VendorEvent(0x06, 0x03)}}},
      {"bseq", kBseq, 4, ""},
      {"bseq in manufacturer mode -v", kBseqInMode, 4, kEnter + Numbered(3, "BSEQ fragment #",
       " downloading...\n", "BSEQ fragment download complete.\n") + kExit, -1, {}, kVerbose},
      {"enter refused", kBseqInMode, 12, kEnterSent + "[FAIL] Event failed\n", 0,
       {{CommandComplete(0x11, 0xFC, 1)}}},
      {"bseq: another command", kBseqInMode, 12,
       kEnter + "Unexpected HCI Event! OCF=0x05, status=0x00\n", 1, {{CommandComplete(5, 0xFC)}}},
      {"bseq: other vendor event", kBseq, 12, "HCI Event failed! evtID=0x18, status=0x00\n", 1,
       {{VendorEvent(0x18)}}},
      {"exit unanswered", kBseqInMode, 12, kEnter + kExitSent + "[FAIL] Read event failed\n", 4},
  };
  // clang-format on
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    g_runOptions = {.interface = kInterfaceUart,
                    .skipReset = (c.flags & kSkipReset) != 0,
                    .verbose = (c.flags & kVerbose) != 0};
    const bool isSigned = c.loop < kBseq;
    fake = {};
    if (isSigned) fake.answers = {c.at == kLast ? c.replies.front() : Reply{VendorEvent(0x06)}};
    if (c.at == kNotSent) fake.failSendFrom = 2;
    fake.reply = [&c, isSigned](size_t index, const Packet& command) -> std::vector<Reply> {
      if (static_cast<int>(index) == c.at) return c.replies;
      // Unacknowledged fragments get no answer: a read between them would take
      // the completion event and fail the final wait.
      if (c.loop == kNocc && command[0] == 0x09) return {};
      if (isSigned || command[0] == 0x11) return {{CommandComplete(command[0], command[1])}};
      // Recorded commands: 0x2F is answered by its Command Complete and the vendor
      // event, the others after an unrelated vendor event the loop must skip.
      if (command[0] == 0x2F) return {{CommandComplete(0x2F, 0xFC)}, {VendorEvent(0x19)}};
      return {{VendorEvent(0x42)}, {CommandComplete(command[0], command[1])}};
    };
    console.Clear();
    ImageContext loaded(isSigned ? sfi : bseq, isSigned ? 0 : 1);
    EXPECT_EQ(c.loop == kAcknowledged ? DownloadSignedWithEvents(&loaded.context)
              : c.loop == kNocc       ? DownloadSignedNoEvents(&loaded.context)
                                      : DownloadBseq(&loaded.context, c.loop == kBseqInMode),
              c.status);
    EXPECT_EQ(console.Err(), c.transcript);
  }
}

TEST_F(DownloadLoops, ExitRequestBitsAccumulateOverTheRun) {
  g_runOptions.interface = kInterfaceUart;
  fake.answers.assign(4, {CommandComplete(0x11, 0xFC)});
  EXPECT_EQ(EnterManufacturerMode(), 0);
  EXPECT_EQ(ExitManufacturerMode(true, true), 0);
  EXPECT_EQ(ExitManufacturerMode(true, false), 0);
  EXPECT_EQ(ExitManufacturerMode(false, false), 0);
  EXPECT_EQ(fake.SentHex(), "11 FC 02 01 00\n11 FC 02 00 02\n11 FC 02 00 03\n11 FC 02 00 03\n");
  EXPECT_EQ(console.Err(), kEnter + kExit + kExit + kExit);
}

}  // namespace
}  // namespace qrx::test
