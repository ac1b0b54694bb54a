#include "fwlib/download_loops.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "app/options.h"
#include "app/timing.h"
#include "fwlib/fake_controller.h"
#include "fwlib/image_context.h"
#include "hci/hci_exchange.h"
#include "hci/vendor_commands.h"
#include "image/fw_image.h"
#include "platform/console.h"
#include "support/child_process_posix.h"
#include "support/temp_dir.h"
#include "transport/tcp_client.h"

namespace qrx {
namespace {

using namespace qrx::testing;

const std::string kReset = "CMD: Norix HCI Reset                     [OK]\n";
const std::string kModeEvent = "EVT: CommandComplete <Manufacturer Mode> ";
const std::string kEnter =
    "CMD: Enter Manufacturer Mode             [OK]\n" + kModeEvent + "[OK]\n";
const std::string kExit = "CMD: Exit Manufacturer Mode              [OK]\n" + kModeEvent + "[OK]\n";
const Reply kSilence = {{}, -1};

// What the iterators cut an image into: what a download must send.
std::vector<Packet> Commands(const std::vector<uint8_t>& image, uint8_t isOperational) {
  ImageContext ctx(image, isOperational);
  std::vector<Packet> out;
  std::array<uint8_t, 259> buffer{};
  for (uint32_t n = 258; GetNextCommand(&ctx.context, buffer.data(), &n) == 0; n = 258) {
    out.emplace_back(buffer.begin(), buffer.begin() + n);
  }
  return out;
}

// Lines "<head>#0<tail>" to "<head>#count<tail>", `between` after all but the last.
std::string Numbered(int count, const std::string& head, const std::string& tail,
                     const std::string& between = "") {
  std::string text;
  for (int i = 0; i <= count; ++i)
    text += head + std::to_string(i) + tail + (i < count ? between : "");
  return text;
}

class DownloadLoops : public ::testing::Test {
 protected:
  void SetUp() override { saved_ = g_runOptions; }
  void TearDown() override {
    SetActiveTransport(nullptr);
    g_runOptions = saved_;
    RestoreExitManufacturerModeCommand();
  }
  void Fresh() {
    g_runOptions = saved_;
    g_runOptions.interface = kInterfaceUart;
    fake = FakeController{};
    SetActiveTransport(&fake);
    RestoreExitManufacturerModeCommand();
    console.Clear();
  }

  FakeController fake;
  ConsoleCapture console;

 private:
  RunOptions saved_;
};

TEST_F(DownloadLoops, SignedLoopsSendTheImageWaitForCompletionAndReset) {
  Packet body;  // one 28-byte group after the five block fragments
  for (uint8_t length : {4, 4, 8, 0}) {
    body.insert(body.end(), {0x8E, 0xFC, length});
    body.resize(body.size() + length, 0xA5);
  }
  const auto image = fwimage::BuildSfiImage({.seed = 4}, body);
  const std::string ackFramed =
      Numbered(6, "SFI fragment #", " downloading...\n", "SFI fragment download complete.\n");
  enum Where { kNowhere, kThird, kLast };  // which answer the replies replace
  struct Case {
    const char* name;
    bool nocc, verbose, skipReset;
    Where where;
    std::vector<Reply> replies;
    FwLibStatus status;
    std::string transcript;
  };
  // clang-format off
  const Case cases[] = {
      {"plain", false, false, false, kNowhere, {}, 0, kReset},
      {"-v", false, true, false, kNowhere, {}, 0, ackFramed + kReset},
      {"skip reset", false, false, true, kNowhere, {}, 0, ""},
      {"-nocc -v", true, true, false, kNowhere, {}, 0,
       Numbered(6, "SFI fragment #", " downloading \n") + kReset},
      {"-nocc, skip reset", true, false, true, kNowhere, {}, 0, ""},
      {"high opcode byte not compared", false, false, false, kThird,
       {{CommandComplete(0x09, 0x3C)}}, 0, kReset},
      {"no answer", false, false, false, kThird, {kSilence}, 12, "QRXBPLRecvCommand failed!\n"},
      {"short event", false, false, false, kThird, {{{0x04, 0x0E, 0x01}}}, 12,
       "Invalid event received! Len: 3\n"},
      {"other event code", false, false, false, kThird, {{{4, 0x0F, 4, 1, 0x09, 0xFC, 0}}}, 12,
       "Unexpected Event Received! Event Code: 0x04\n"},
      {"another command", false, false, false, kThird, {{CommandComplete(0x05, 0xFC)}}, 12,
       "Unexpected HCI Event! OCF=0x05"},
      {"failed status", false, false, false, kThird, {{CommandComplete(0x09, 0xFC, 0x1F)}}, 12,
       "HCI Command Complete event failed! status: 0x1f\n"},
      {"no completion", false, false, false, kLast, {kSilence}, 12,
       "QRXBPLRecvCommand is failed!\n"},
      {"-nocc, no completion", true, false, false, kLast, {kSilence}, 12,
       "QRXBPLRecvCommand is failed!\n"},
      {"completion short", false, false, false, kLast, {{{0x04, 0xFF, 0x01}}}, 12,
       "Invalid event received! Len: 3\n"},
      {"-nocc, completion not vendor", true, false, false, kLast, {{CommandComplete(9, 0xFC)}}, 12,
       "Unexpected Event Received! Event Code: 0x04\n"},
      {"other vendor event", false, false, false, kLast, {{VendorEvent(0x05)}}, 12,
       "Unexpected HCI ID! Evt ID=0x05\n"},
      {"completion failed", false, false, false, kLast, {{VendorEvent(0x06, 0x03)}}, 12,
       "HCI event failed! status: 0x03\n"},
  };
  // clang-format on
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Fresh();
    g_runOptions.verbose = c.verbose;
    g_runOptions.skipReset = c.skipReset;
    fake.later = {c.where == kLast ? c.replies.front() : Reply{VendorEvent(0x06)}};
    fake.answer = [&c](size_t index, const Packet& command) {
      // Unacknowledged fragments get no answer: a read between them would take
      // the completion event and fail the final wait.
      if (c.nocc && command[0] == 0x09) return std::vector<Reply>{};
      if (c.where == kThird && index == 2) return c.replies;
      return FakeController{}.answer(index, command);
    };
    g_runTimers = RunTimers{};
    ImageContext ctx(image);
    EXPECT_EQ(
        c.nocc ? DownloadSignedNoEvents(&ctx.context) : DownloadSignedWithEvents(&ctx.context),
        c.status);
    EXPECT_EQ(console.Err(), c.transcript);
    if (c.status != kFwLibSuccess) continue;
    std::vector<Packet> expected = Commands(image, 0);
    if (!c.skipReset) expected.push_back({0x01, 0xFC, 0x08, 0, 0, 0, 0x01, 0, 0x80, 0, 0});
    EXPECT_EQ(fake.sent, expected);
    EXPECT_GT(g_runTimers.timers[static_cast<size_t>(RunTimer::kPatchLibGetNext)].accumulated, 0);
  }
  for (bool nocc : {false, true}) {
    Fresh();
    fake.failSendAt = 2;
    ImageContext ctx(image);
    EXPECT_EQ(nocc ? DownloadSignedNoEvents(&ctx.context) : DownloadSignedWithEvents(&ctx.context),
              kFwLibIoFailure);
    EXPECT_EQ(console.Err(), "QRXBPLSendCommand failed!\n");
  }
  Fresh();
  ImageContext empty({});  // exhausted at once: straight to the final wait
  fake.later = {{VendorEvent(0x06)}};
  EXPECT_EQ(DownloadSignedWithEvents(&empty.context), kFwLibSuccess);
  EXPECT_EQ(fake.sent.size(), 1u);
  EXPECT_EQ(DownloadSignedNoEvents(nullptr), kFwLibInvalidEvent);
}

// Recorded commands answer as a controller does: opcode low byte 0x2F with a
// Command Complete and then the vendor event, any other after an unrelated
// vendor event that the loop must skip.
std::vector<Reply> BseqAnswer(size_t, const Packet& command) {
  if (command[0] == 0x2F) return {{CommandComplete(0x2F, 0xFC)}, {VendorEvent(0x19)}};
  if (command[0] == 0x11) return {{CommandComplete(0x11, 0xFC)}};
  return {{VendorEvent(0x42)}, {CommandComplete(command[0], command[1])}};
}

TEST_F(DownloadLoops, BseqLoopChecksEachCommandsOwnEvent) {
  const auto image = fwimage::BuildBseqImage(
      std::vector<fwimage::BseqCommand>{{0xFC8E, {1, 2, 3}}, {0xFC2F, {}}, {0xFC8B, {9}}}, true);
  const std::string framed =
      Numbered(3, "BSEQ fragment #", " downloading...\n", "BSEQ fragment download complete.\n");
  struct Case {
    const char* name;
    bool manufacturerMode, verbose;
    int replaced;  // the command whose answer is replaced (enter is 0), or -1
    std::vector<Reply> answer;
    FwLibStatus status;
    std::string transcript;
  };
  // clang-format off
  const Case cases[] = {
      {"plain", false, false, -1, {}, 4, ""},
      {"-v", false, true, -1, {}, 4, framed},
      {"manufacturer mode -v", true, true, -1, {}, 4, kEnter + framed + kExit},
      {"enter refused", true, false, 0, {{CommandComplete(0x11, 0xFC, 1)}}, 12,
       "CMD: Enter Manufacturer Mode             [OK]\n" + kModeEvent + "[FAIL] Event failed\n"},
      {"another command", true, false, 1, {{CommandComplete(0x05, 0xFC)}}, 12,
       kEnter + "Unexpected HCI Event! OCF=0x05, status=0x00\n"},
      {"failed status", false, false, 0, {{CommandComplete(0x8E, 0xFC, 0x12)}}, 12,
       "Unexpected HCI Event! OCF=0x8e, status=0x12\n"},
      {"other vendor event", false, false, 1, {{VendorEvent(0x18)}}, 12,
       "HCI Event failed! evtID=0x18, status=0x00\n"},
      {"short event", false, false, 2, {{{0x04, 0x0E, 0x02}}}, 12,
       "Invalid event received! Len: 3\n"},
      {"no answer", false, false, 2, {}, 12, "QRXBPLRecvCommand failed!\n"},
      {"exit unanswered", true, false, 4, {}, 12,
       kEnter + "CMD: Exit Manufacturer Mode              [OK]\n" + kModeEvent +
           "[FAIL] Read event failed\n"},
  };
  // clang-format on
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Fresh();
    g_runOptions.verbose = c.verbose;
    fake.answer = [&c](size_t index, const Packet& command) {
      return static_cast<int>(index) == c.replaced ? c.answer : BseqAnswer(index, command);
    };
    ImageContext ctx(image, 1);
    EXPECT_EQ(DownloadBseq(&ctx.context, c.manufacturerMode), c.status);
    EXPECT_EQ(console.Err(), c.transcript);
    if (c.status != kFwLibImageExhausted) continue;
    std::vector<Packet> expected = Commands(image, 1);
    if (c.manufacturerMode) {
      expected.insert(expected.begin(), {0x11, 0xFC, 0x02, 0x01, 0x00});
      expected.push_back({0x11, 0xFC, 0x02, 0x00, 0x02});
    }
    EXPECT_EQ(fake.sent, expected);
  }
  Fresh();
  fake.failSendAt = 1;
  ImageContext ctx(image, 1);
  EXPECT_EQ(DownloadBseq(&ctx.context, false), kFwLibIoFailure);
  EXPECT_EQ(console.Err(), "QRXBPLSendCommand failed!\n");
  ImageContext eventsOnly({0x02, 0x0E, 0x04, 0x01, 0x8E, 0xFC, 0x00}, 1);
  EXPECT_EQ(DownloadBseq(&eventsOnly.context, false), kFwLibImageExhausted);
  EXPECT_EQ(fake.sent.size(), 2u);  // nothing more than before
}

TEST_F(DownloadLoops, ExitRequestBitsAccumulateOverTheRun) {
  Fresh();
  EXPECT_EQ(ExitManufacturerMode(true, true), 0);
  EXPECT_EQ(ExitManufacturerMode(true, false), 0);
  EXPECT_EQ(ExitManufacturerMode(false, false), 0);
  EXPECT_EQ(fake.sent, (std::vector<Packet>{{0x11, 0xFC, 0x02, 0x00, 0x02},
                                            {0x11, 0xFC, 0x02, 0x00, 0x03},
                                            {0x11, 0xFC, 0x02, 0x00, 0x03}}));
  EXPECT_EQ(console.Err(), kExit + kExit + kExit);
  // A receive result other than 0 and -1 is passed back as it is.
  fake.answer = [](size_t, const Packet&) { return std::vector<Reply>{{{}, 5}}; };
  EXPECT_EQ(EnterManufacturerMode(), 5);
}

std::string Hex(const Packet& command) {
  std::string text;
  for (uint8_t byte : command) {
    std::array<char, 4> one{};
    std::snprintf(one.data(), one.size(), text.empty() ? "%02X" : " %02X", byte);
    text += one.data();
  }
  return text;
}

// The loops against the simulated controller over TCP: what it logs receiving
// is the image's commands, in order, with nothing lost, added or reordered.
TEST_F(DownloadLoops, SimulatedControllerReceivesExactlyTheImagesCommands) {
  const Packet reset = {0x01, 0xFC, 0x08, 0, 0, 0, 0x01, 0, 0x80, 0, 0};
  const auto sfi = fwimage::BuildSfiImage({.bodyBytes = 3000, .seed = 9});
  const auto bseq = fwimage::BuildBseqImage(fwimage::SampleBseqCommands(9, 4), true);
  enum Loop { kAcknowledged, kUnacknowledged, kBseq };
  struct Case {
    Loop loop;
    const char* profile;
    std::vector<Packet> before, after;
  };
  const Case cases[] = {
      {kAcknowledged, "tlv-boot", {}, {reset}},
      {kUnacknowledged, "tlv-boot", {{0x8B, 0xFC, 0x04, 0x03, 0x86, 0x01, 0x01}}, {reset}},
      {kBseq, "tlv-op", {{0x11, 0xFC, 0x02, 0x01, 0x00}}, {{0x11, 0xFC, 0x02, 0x00, 0x02}}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.profile);
    Fresh();
    test::TempDir dir;
    test::ChildProcess sim;
    ASSERT_TRUE(sim.Start(test::BuildProduct("sim/qrxvps"), {"--port", "0", "--once", "--profile",
                                                             c.profile, "--log", dir.Join("log")}));
    const std::string line = sim.ReadLine(5000).value_or("");
    ASSERT_NE(line.find("listening on"), std::string::npos) << "qrxvps did not start: " << line;
    const std::string port = line.substr(line.rfind(':') + 1);
    g_runOptions.interface = kInterfaceTcp;
    const std::array<char, 10> address{"127.0.0.1"};
    SetServerAddress(address.data(), address.size());
    ASSERT_TRUE(ConnectToServer(port.c_str())) << line;
    std::array<uint8_t, kEventBufferSize> ready{};
    uint32_t length = 0;  // every session opens with the controller's ready event
    ASSERT_EQ(QRXBPLRecvCommand(ready.data(), kEventBufferSize, &length, kEventTimeoutMs), 0);
    if (c.loop == kUnacknowledged) WriteDdcCceBlock();

    ImageContext ctx(c.loop == kBseq ? bseq : sfi, c.loop == kBseq ? 1 : 0);
    EXPECT_EQ(c.loop == kBseq           ? DownloadBseq(&ctx.context, true)
              : c.loop == kAcknowledged ? DownloadSignedWithEvents(&ctx.context)
                                        : DownloadSignedNoEvents(&ctx.context),
              c.loop == kBseq ? kFwLibImageExhausted : kFwLibSuccess);
    CloseServerConnection();
    EXPECT_EQ(sim.WaitExit(5000), 0);

    std::string expected;
    const auto sent = Commands(c.loop == kBseq ? bseq : sfi, c.loop == kBseq ? 1 : 0);
    for (const auto* part : {&c.before, &sent, &c.after}) {
      for (const Packet& command : *part) expected += Hex(command) + "\n";
    }
    EXPECT_EQ(dir.Read("log"), expected);
  }
}

}  // namespace
}  // namespace qrx
