#include "fwlib/download_loops.h"

#include <gtest/gtest.h>

#include <string>

#include "app/options.h"
#include "fwlib_fixture.h"
#include "hci/hci_exchange.h"
#include "image/fw_image.h"
#include "platform/console.h"
#include "support/fake_controller.h"

namespace qrx::test {
namespace {

const std::string kReset = "CMD: Norix HCI Reset                     [OK]\n";
const std::string kModeEvent = "EVT: CommandComplete <Manufacturer Mode> ";
const std::string kEnterSent = "CMD: Enter Manufacturer Mode             [OK]\n" + kModeEvent;
const std::string kExitSent = "CMD: Exit Manufacturer Mode              [OK]\n" + kModeEvent;
const std::string kEnter = kEnterSent + "[OK]\n", kExit = kExitSent + "[OK]\n";
const Packet kResetToFirmware = {0x01, 0xFC, 0x08, 0, 0, 0, 0x01, 0, 0x80, 0, 0};
const Packet kExitCommand = {0x11, 0xFC, 0x02, 0x00, 0x02};
const Reply kSilence = {{}, -1};

// Lines "<head>#0<tail>" to "<head>#count<tail>", `between` after all but the last.
std::string Numbered(int count, const std::string& head, const std::string& tail,
                     const std::string& between = "") {
  std::string text;
  for (int i = 0; i <= count; ++i)
    text += head + std::to_string(i) + tail + (i < count ? between : "");
  return text;
}

// A UART run with a fake controller that answers every command with its
// Command Complete.
class DownloadLoops : public ::testing::Test {
 protected:
  void TearDown() override {
    SetActiveTransport(nullptr);
    g_runOptions = RunOptions{};
    RestoreExitManufacturerModeCommand();
  }
  void Fresh(bool verbose = false) {
    TearDown();
    g_runOptions.interface = kInterfaceUart;
    g_runOptions.verbose = verbose;
    fake = FakeController{};
    fake.reply = [](size_t, const Packet& c) -> std::vector<Reply> {
      return {{CommandComplete(c[0], c[1])}};
    };
    SetActiveTransport(&fake);
    console.Clear();
  }
  FakeController fake;
  ConsoleCapture console;
};

// The three loops in one table: the whole transcript, the status and, when
// the download succeeds, every command sent.
TEST_F(DownloadLoops, SendTheImageAndJudgeEveryAnswer) {
  const auto sfi = fwimage::BuildSfiImage({.seed = 4}, {});  // five fragments
  const auto bseq = fwimage::BuildBseqImage(
      std::vector<fwimage::BseqCommand>{{0xFC8E, {1, 2, 3}}, {0xFC2F, {}}, {0xFC8B, {9}}}, true);
  enum Loop { kAcknowledged, kNocc, kBseq, kBseqInMode };
  enum Flags { kVerbose = 1, kSkipReset = 2 };
  constexpr int kLast = 98, kNotSent = 99;  // the completion event; the third send fails
  struct Case {
    const char* name;
    Loop loop;
    int flags;
    int at;  // the command (from 0) whose answer the replies replace
    std::vector<Reply> replies;
    FwLibStatus status;
    std::string transcript;
  };
  const std::string unknown = "Unexpected Event Received! Event Code: 0x04\n";
  // clang-format off
  const Case cases[] = {
      {"plain", kAcknowledged, 0, -1, {}, 0, kReset},
      {"-v", kAcknowledged, kVerbose, -1, {}, 0, Numbered(5, "SFI fragment #", " downloading...\n",
                                                 "SFI fragment download complete.\n") + kReset},
      {"SKIP_RESET", kAcknowledged, kSkipReset, -1, {}, 0, ""},
      {"-nocc -v", kNocc, kVerbose, -1, {}, 0,
       Numbered(5, "SFI fragment #", " downloading \n") + kReset},
      {"high opcode byte not compared", kAcknowledged, 0, 2, {{CommandComplete(0x09, 0x3C)}}, 0,
       kReset},
      {"send fails", kAcknowledged, 0, kNotSent, {}, 14, "QRXBPLSendCommand failed!\n"},
      {"no answer", kAcknowledged, 0, 2, {kSilence}, 12, "QRXBPLRecvCommand failed!\n"},
      {"short event", kAcknowledged, 0, 2, {{{4, 0x0E, 1}}}, 12,
       "Invalid event received! Len: 3\n"},
      {"other event code", kAcknowledged, 0, 2, {{{4, 0x0F, 4, 1, 0x09, 0xFC, 0}}}, 12, unknown},
      {"another command", kAcknowledged, 0, 2, {{CommandComplete(0x05, 0xFC)}}, 12,
       "Unexpected HCI Event! OCF=0x05"},
      {"failed status", kAcknowledged, 0, 2, {{CommandComplete(0x09, 0xFC, 0x1F)}}, 12,
       "HCI Command Complete event failed! status: 0x1f\n"},
      {"no completion", kAcknowledged, 0, kLast, {kSilence}, 12, "QRXBPLRecvCommand is failed!\n"},
      {"-nocc, completion not vendor", kNocc, 0, kLast, {{CommandComplete(9, 0xFC)}}, 12, unknown},
      {"other vendor event", kAcknowledged, 0, kLast, {{VendorEvent(0x05)}}, 12,
       "Unexpected HCI ID! Evt ID=0x05\n"},
      {"completion failed", kAcknowledged, 0, kLast, {{VendorEvent(0x06, 0x03)}}, 12,
       "HCI event failed! status: 0x03\n"},
      {"bseq", kBseq, 0, -1, {}, 4, ""},
      {"bseq in manufacturer mode -v", kBseqInMode, kVerbose, -1, {}, 4, kEnter +
       Numbered(3, "BSEQ fragment #", " downloading...\n", "BSEQ fragment download complete.\n") +
       kExit},
      {"enter refused", kBseqInMode, 0, 0, {{CommandComplete(0x11, 0xFC, 1)}}, 12,
       kEnterSent + "[FAIL] Event failed\n"},
      {"bseq: another command", kBseqInMode, 0, 1, {{CommandComplete(0x05, 0xFC)}}, 12,
       kEnter + "Unexpected HCI Event! OCF=0x05, status=0x00\n"},
      {"bseq: other vendor event", kBseq, 0, 1, {{VendorEvent(0x18)}}, 12,
       "HCI Event failed! evtID=0x18, status=0x00\n"},
      {"exit unanswered", kBseqInMode, 0, 4, {}, 12,
       kEnter + kExitSent + "[FAIL] Read event failed\n"},
  };
  // clang-format on
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Fresh((c.flags & kVerbose) != 0);
    g_runOptions.skipReset = (c.flags & kSkipReset) != 0;
    const bool isSigned = c.loop < kBseq;
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
    ImageContext ctx(isSigned ? sfi : bseq, isSigned ? 0 : 1);
    EXPECT_EQ(c.loop == kAcknowledged ? DownloadSignedWithEvents(&ctx.context)
              : c.loop == kNocc       ? DownloadSignedNoEvents(&ctx.context)
                                      : DownloadBseq(&ctx.context, c.loop == kBseqInMode),
              c.status);
    EXPECT_EQ(console.Err(), c.transcript);
    if (c.status != kFwLibSuccess && c.status != kFwLibImageExhausted) continue;
    // What the iterators cut the image into.
    ImageContext again(ctx.image, isSigned ? 0 : 1);
    std::vector<Packet> expected = WalkAll(again.context).commands;
    if (isSigned && !g_runOptions.skipReset) expected.push_back(kResetToFirmware);
    if (c.loop == kBseqInMode) {
      expected.insert(expected.begin(), {0x11, 0xFC, 0x02, 0x01, 0x00});
      expected.push_back(kExitCommand);
    }
    EXPECT_EQ(fake.sent, expected);
  }
}

TEST_F(DownloadLoops, ExitRequestBitsAccumulateOverTheRun) {
  Fresh();
  EXPECT_EQ(ExitManufacturerMode(true, true), 0);
  EXPECT_EQ(ExitManufacturerMode(true, false), 0);
  EXPECT_EQ(ExitManufacturerMode(false, false), 0);
  EXPECT_EQ(fake.sent,
            (std::vector<Packet>{
                kExitCommand, {0x11, 0xFC, 0x02, 0x00, 0x03}, {0x11, 0xFC, 0x02, 0x00, 0x03}}));
  EXPECT_EQ(console.Err(), kExit + kExit + kExit);
}

}  // namespace
}  // namespace qrx::test
