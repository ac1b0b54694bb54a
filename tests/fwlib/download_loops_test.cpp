#include "fwlib/download_loops.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "app/options.h"
#include "app/timing.h"
#include "fwlib/fake_controller.h"
#include "fwlib/image_context.h"
#include "hci/hci_exchange.h"
#include "hci/vendor_commands.h"
#include "image/fw_image.h"
#include "platform/console.h"

namespace qrx {
namespace {

using testing::CommandComplete;
using testing::FakeController;
using testing::ImageContext;
using testing::Packet;
using testing::Reply;
using testing::VendorEvent;

const std::string kResetLine = "CMD: Norix HCI Reset                     [OK]\n";
const Packet kResetCommand = {0x01, 0xFC, 0x08, 0x00, 0x00, 0x00, 0x01, 0x00, 0x80, 0x00, 0x00};
const std::string kEnterLines =
    "CMD: Enter Manufacturer Mode             [OK]\n"
    "EVT: CommandComplete <Manufacturer Mode> [OK]\n";
const std::string kExitLines =
    "CMD: Exit Manufacturer Mode              [OK]\n"
    "EVT: CommandComplete <Manufacturer Mode> [OK]\n";
const Packet kEnterCommand = {0x11, 0xFC, 0x02, 0x01, 0x00};

// A signed image of six fragments: five for the block, one 28-byte body group.
std::vector<uint8_t> SignedImage() {
  std::vector<uint8_t> body;
  for (uint8_t length : {4, 4, 8, 0}) {
    body.insert(body.end(), {0x8E, 0xFC, length});
    body.resize(body.size() + length, 0xA5);
  }
  return fwimage::BuildSfiImage({.seed = 4}, body);
}

const std::vector<fwimage::BseqCommand> kBseqCommands = {
    {0xFC8E, {1, 2, 3}}, {0xFC2F, {}}, {0xFC8B, {9}}};

// What the iterators cut the image into: the commands a download must send.
std::vector<Packet> Fragments(const std::vector<uint8_t>& image, uint8_t isOperational) {
  ImageContext ctx(image, isOperational);
  std::vector<Packet> out;
  std::array<uint8_t, 259> buffer{};
  uint32_t length = 258;
  while (GetNextCommand(&ctx.context, buffer.data(), &length) == kFwLibSuccess) {
    out.emplace_back(buffer.begin(), buffer.begin() + length);
    length = 258;
  }
  return out;
}

// Recorded commands answer as a controller does: a command with opcode low
// byte 0x2F with its Command Complete and then the vendor event, any other
// after an unrelated vendor event that the loop must skip.
std::vector<Reply> BseqAnswer(size_t, const Packet& command) {
  if (command[0] == 0x2F) return {{CommandComplete(0x2F, 0xFC)}, {VendorEvent(0x19)}};
  if (command[0] == 0x11) return {{CommandComplete(0x11, 0xFC)}};
  return {{VendorEvent(0x42)}, {CommandComplete(command[0], command[1])}};
}

class DownloadLoops : public ::testing::Test {
 protected:
  void SetUp() override {
    saved_ = g_runOptions;
    g_runOptions.interface = kInterfaceUart;
    Fresh();
  }
  void TearDown() override {
    SetActiveTransport(nullptr);
    g_runOptions = saved_;
    RestoreExitManufacturerModeCommand();
  }
  // A new controller and console for the next case.
  void Fresh() {
    fake = FakeController{};
    fake.later = {{VendorEvent(0x06)}};
    SetActiveTransport(&fake);
    RestoreExitManufacturerModeCommand();
    RestoreResetTemplate();
    console.Clear();
  }

  FakeController fake;
  ConsoleCapture console;

 private:
  RunOptions saved_;
};

std::vector<Packet> Join(std::vector<Packet> a, const std::vector<Packet>& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

TEST_F(DownloadLoops, SignedLoopsSendEveryFragmentWaitForCompletionAndReset) {
  const auto image = SignedImage();
  const auto fragments = Fragments(image, 0);
  ASSERT_EQ(fragments.size(), 6u);
  std::string ackVerbose, noccVerbose;
  for (int i = 0; i < 6; ++i) {
    ackVerbose += "SFI fragment #" + std::to_string(i) + " downloading...\n" +
                  "SFI fragment download complete.\n";
    noccVerbose += "SFI fragment #" + std::to_string(i) + " downloading \n";
  }
  struct Case {
    const char* name;
    bool acknowledged, verbose, skipReset, emptyImage;
    std::string transcript;
  };
  const Case cases[] = {
      {"acknowledged", true, false, false, false, kResetLine},
      {"acknowledged -v", true, true, false, false,
       ackVerbose + "SFI fragment #6 downloading...\n" + kResetLine},
      {"acknowledged, skip reset", true, false, true, false, ""},
      {"-nocc -v", false, true, false, false,
       noccVerbose + "SFI fragment #6 downloading \n" + kResetLine},
      {"-nocc, skip reset", false, false, true, false, ""},
      {"empty image goes to the final wait", true, false, false, true, kResetLine},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Fresh();
    g_runOptions.verbose = c.verbose;
    g_runOptions.skipReset = c.skipReset;
    // Unacknowledged fragments get no answer: a read between them would
    // take the completion event and fail the final wait.
    if (!c.acknowledged) fake.answer = [](size_t, const Packet&) { return std::vector<Reply>{}; };
    g_runTimers = RunTimers{};
    ImageContext ctx(c.emptyImage ? std::vector<uint8_t>{} : image);
    EXPECT_EQ(c.acknowledged ? DownloadSignedWithEvents(&ctx.context)
                             : DownloadSignedNoEvents(&ctx.context),
              kFwLibSuccess);
    EXPECT_EQ(console.Err(), c.transcript);
    EXPECT_EQ(fake.sent,
              Join(c.emptyImage ? std::vector<Packet>{} : fragments,
                   c.skipReset ? std::vector<Packet>{} : std::vector<Packet>{kResetCommand}));
    EXPECT_GT(g_runTimers.timers[static_cast<size_t>(RunTimer::kPatchLibGetNext)].accumulated, 0);
  }
}

TEST_F(DownloadLoops, AcknowledgedLoopStopsAtTheFirstBadAnswer) {
  struct Case {
    const char* name;
    std::optional<std::vector<Reply>> third;  // answer to the third fragment
    std::vector<Reply> last;                  // what follows the last fragment
    FwLibStatus status;
    std::string transcript;
    size_t failSendAt = SIZE_MAX;
  };
  const std::vector<Reply> done = {{VendorEvent(0x06)}};
  const Case cases[] = {
      {"send fails", {}, done, kFwLibIoFailure, "QRXBPLSendCommand failed!\n", 2},
      {"no answer", std::vector<Reply>{}, {}, kFwLibInvalidEvent, "QRXBPLRecvCommand failed!\n"},
      {"short event", std::vector<Reply>{{{0x04, 0x0E, 0x01}}}, done, kFwLibInvalidEvent,
       "Invalid event received! Len: 3\n"},
      {"other event code", std::vector<Reply>{{{0x04, 0x0F, 0x04, 0x00, 0x01, 0x09, 0xFC}}}, done,
       kFwLibInvalidEvent, "Unexpected Event Received! Event Code: 0x04\n"},
      {"answer for another command", std::vector<Reply>{{CommandComplete(0x05, 0xFC)}}, done,
       kFwLibInvalidEvent, "Unexpected HCI Event! OCF=0x05"},
      {"failed status", std::vector<Reply>{{CommandComplete(0x09, 0xFC, 0x1F)}}, done,
       kFwLibInvalidEvent, "HCI Command Complete event failed! status: 0x1f\n"},
      {"high opcode byte is not compared", std::vector<Reply>{{CommandComplete(0x09, 0x3C)}}, done,
       kFwLibSuccess, kResetLine},
      {"untraced answer still counts", std::vector<Reply>{{CommandComplete(0x09, 0xFC), 1}}, done,
       kFwLibSuccess, kResetLine},
      {"no completion event", {}, {}, kFwLibInvalidEvent, "QRXBPLRecvCommand is failed!\n"},
      {"completion too short",
       {},
       {{{0x04, 0xFF, 0x01}}},
       kFwLibInvalidEvent,
       "Invalid event received! Len: 3\n"},
      {"completion not a vendor event",
       {},
       {{CommandComplete(0x09, 0xFC)}},
       kFwLibInvalidEvent,
       "Unexpected Event Received! Event Code: 0x04\n"},
      {"other vendor event",
       {},
       {{VendorEvent(0x05)}},
       kFwLibInvalidEvent,
       "Unexpected HCI ID! Evt ID=0x05\n"},
      {"completion failed",
       {},
       {{VendorEvent(0x06, 0x03)}},
       kFwLibInvalidEvent,
       "HCI event failed! status: 0x03\n"},
      {"completion read not clean",
       {},
       {{VendorEvent(0x06), 1}},
       kFwLibInvalidEvent,
       "QRXBPLRecvCommand is failed!\n"},
  };
  const auto image = SignedImage();
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Fresh();
    fake.failSendAt = c.failSendAt;
    fake.later = {c.last.begin(), c.last.end()};
    if (c.third) {
      fake.answer = [third = *c.third](size_t index, const Packet& command) {
        return index == 2 ? third : std::vector<Reply>{{CommandComplete(command[0], command[1])}};
      };
    }
    ImageContext ctx(image);
    EXPECT_EQ(DownloadSignedWithEvents(&ctx.context), c.status);
    EXPECT_EQ(console.Err(), c.transcript);
  }
}

TEST_F(DownloadLoops, UnacknowledgedLoopFailuresAndIteratorStatusesPassThrough) {
  auto broken = SignedImage();
  broken[644 + 2] = 250;  // a body command that no fragment can hold
  struct Case {
    const char* name;
    bool acknowledged;
    std::vector<uint8_t> image;
    size_t failSendAt;
    FwLibStatus status;
    std::string transcript;
    size_t sent;
  };
  const Case cases[] = {
      {"-nocc send fails", false, SignedImage(), 4, kFwLibIoFailure, "QRXBPLSendCommand failed!\n",
       5},
      {"-nocc malformed body", false, broken, SIZE_MAX, kFwLibInvalidEvent, "", 5},
      {"acknowledged malformed body", true, broken, SIZE_MAX, kFwLibInvalidEvent, "", 5},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Fresh();
    fake.failSendAt = c.failSendAt;
    ImageContext ctx(c.image);
    EXPECT_EQ(c.acknowledged ? DownloadSignedWithEvents(&ctx.context)
                             : DownloadSignedNoEvents(&ctx.context),
              c.status);
    EXPECT_EQ(console.Err(), c.transcript);
    EXPECT_EQ(fake.sent.size(), c.sent);
  }
  EXPECT_EQ(DownloadSignedNoEvents(nullptr), kFwLibInvalidEvent);
  EXPECT_EQ(DownloadSignedWithEvents(nullptr), kFwLibInvalidParameter);
}

TEST_F(DownloadLoops, BseqLoopChecksEachCommandsOwnEvent) {
  const auto image = fwimage::BuildBseqImage(kBseqCommands, true);
  const auto commands = Fragments(image, 1);
  const Packet exit = {0x11, 0xFC, 0x02, 0x00, 0x02};
  std::string framed;
  for (int i = 0; i < 3; ++i) {
    framed += "BSEQ fragment #" + std::to_string(i) +
              " downloading...\nBSEQ fragment download complete.\n";
  }
  framed += "BSEQ fragment #3 downloading...\n";

  struct Case {
    const char* name;
    bool manufacturerMode, verbose;
    std::optional<size_t> replaced;  // index of the command whose answer is replaced
    std::vector<Reply> answer;
    FwLibStatus status;
    std::string transcript;
    size_t failSendAt = SIZE_MAX;
  };
  const Case cases[] = {
      {"plain", false, false, {}, {}, kFwLibImageExhausted, ""},
      {"plain -v", false, true, {}, {}, kFwLibImageExhausted, framed},
      {"manufacturer mode -v",
       true,
       true,
       {},
       {},
       kFwLibImageExhausted,
       kEnterLines + framed + kExitLines},
      {"enter refused",
       true,
       false,
       0,
       {{CommandComplete(0x11, 0xFC, 0x01)}},
       kFwLibInvalidEvent,
       "CMD: Enter Manufacturer Mode             [OK]\n"
       "EVT: CommandComplete <Manufacturer Mode> [FAIL] Event failed\n"},
      {"answer for another command",
       true,
       false,
       1,
       {{CommandComplete(0x05, 0xFC)}},
       kFwLibInvalidEvent,
       kEnterLines + "Unexpected HCI Event! OCF=0x05, status=0x00\n"},
      {"failed status",
       false,
       false,
       0,
       {{CommandComplete(0x8E, 0xFC, 0x12)}},
       kFwLibInvalidEvent,
       "Unexpected HCI Event! OCF=0x8e, status=0x12\n"},
      {"other vendor event",
       false,
       false,
       1,
       {{VendorEvent(0x18)}},
       kFwLibInvalidEvent,
       "HCI Event failed! evtID=0x18, status=0x00\n"},
      {"vendor event failed",
       false,
       false,
       1,
       {{VendorEvent(0x19, 0x01)}},
       kFwLibInvalidEvent,
       "HCI Event failed! evtID=0x19, status=0x01\n"},
      {"short event",
       false,
       false,
       2,
       {{{0x04, 0x0E, 0x02}}},
       kFwLibInvalidEvent,
       "Invalid event received! Len: 3\n"},
      {"no answer", false, false, 2, {}, kFwLibInvalidEvent, "QRXBPLRecvCommand failed!\n"},
      {"send fails", false, false, {}, {}, kFwLibIoFailure, "QRXBPLSendCommand failed!\n", 1},
      {"exit unanswered",
       true,
       false,
       4,
       {},
       kFwLibInvalidEvent,
       kEnterLines + "CMD: Exit Manufacturer Mode              [OK]\n"
                     "EVT: CommandComplete <Manufacturer Mode> [FAIL] Read event failed\n"},
      {"exit not sent",
       true,
       false,
       {},
       {},
       kFwLibInvalidEvent,
       kEnterLines + "CMD: Exit Manufacturer Mode              [FAIL] Send command failed\n",
       4},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Fresh();
    fake.later.clear();
    fake.failSendAt = c.failSendAt;
    g_runOptions.verbose = c.verbose;
    fake.answer = [&c](size_t index, const Packet& command) {
      return c.replaced == index ? c.answer : BseqAnswer(index, command);
    };
    ImageContext ctx(image, 1);
    EXPECT_EQ(DownloadBseq(&ctx.context, c.manufacturerMode), c.status);
    EXPECT_EQ(console.Err(), c.transcript);
    if (c.status == kFwLibImageExhausted) {
      EXPECT_EQ(fake.sent,
                c.manufacturerMode ? Join(Join({kEnterCommand}, commands), {exit}) : commands);
    }
  }
}

TEST_F(DownloadLoops, BseqOfEventRecordsOnlySendsNothing) {
  ImageContext ctx({0x02, 0x0E, 0x04, 0x01, 0x8E, 0xFC, 0x00}, 1);
  EXPECT_EQ(DownloadBseq(&ctx.context, false), kFwLibImageExhausted);
  EXPECT_TRUE(fake.sent.empty());
  EXPECT_EQ(console.Err(), "");
}

TEST_F(DownloadLoops, ExitRequestBitsAccumulateOverTheRun) {
  fake.answer = BseqAnswer;
  EXPECT_EQ(ExitManufacturerMode(true, true), 0);
  EXPECT_EQ(ExitManufacturerMode(true, false), 0);
  EXPECT_EQ(ExitManufacturerMode(false, false), 0);
  EXPECT_EQ(fake.sent, (std::vector<Packet>{{0x11, 0xFC, 0x02, 0x00, 0x02},
                                            {0x11, 0xFC, 0x02, 0x00, 0x03},
                                            {0x11, 0xFC, 0x02, 0x00, 0x03}}));
  EXPECT_EQ(console.Err(), kExitLines + kExitLines + kExitLines);

  // A read that the transport reports with its own non-zero result is passed back.
  console.Clear();
  fake.answer = [](size_t, const Packet&) {
    return std::vector<Reply>{{CommandComplete(0x11, 0xFC), 5}};
  };
  EXPECT_EQ(EnterManufacturerMode(), 5);
  EXPECT_EQ(console.Err(),
            "CMD: Enter Manufacturer Mode             [OK]\n"
            "EVT: CommandComplete <Manufacturer Mode> [FAIL] Read event failed\n");
}

}  // namespace
}  // namespace qrx
