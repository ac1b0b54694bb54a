#include "hci/vendor_commands.h"

#include <gtest/gtest.h>

#include <array>
#include <deque>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "app/options.h"
#include "hci/hci_exchange.h"
#include "platform/console.h"
#include "support/fake_controller.h"

namespace qrx::test {
namespace {

// The HCI layer on the UART path (-i 2) with a fake controller behind it.
class HciLayer : public ::testing::Test {
 protected:
  void SetUp() override {
    g_runOptions = RunOptions{};
    g_runOptions.interface = kInterfaceUart;
    SetActiveTransport(&controller);
  }
  void TearDown() override {
    SetActiveTransport(nullptr);
    RestoreResetTemplate();
  }
  FakeController controller;
  ConsoleCapture console;
};

// Exchanges the end-to-end runs do not reach: failed sends, answers that are
// not the awaited one, a receive result other than 0, and the DDC block write.
TEST_F(HciLayer, VendorExchangesPrintTheirStepsSendTheirBytesAndJudgeTheAnswers) {
  using Step = std::function<bool()>;
  std::array<uint8_t, kEventBufferSize> event{};
  // The answer stays in the caller's buffer.
  const Step version = [&] { return ReadVersion(event.data()) && event[9] == 0x06; };
  // The boot-address reset after the parameters shows where the address ended up.
  const Step params = [] { return ReadSecureBootParams(), SendVendorReset(false), true; };
  const Step toBootloader = [] { return SendVendorReset(true), true; };
  const Step ddc = [] { return WriteDdcCceBlock(); };
  const std::string versionCmd = "CMD: Read Norix Version                  ";
  const std::string versionEvt = versionCmd + "[OK]\nEVT: CommandComplete <Norix Version>     ";
  const std::string paramsEvt =
      "CMD: Read Secure Boot Params             [OK]\nEVT: CommandComplete <Sec Boot Params>   ";
  const std::string reset = "CMD: Norix HCI Reset                     ";
  const std::string paramsSent = "0D FC 00\n01 FC 08 00 00 00 01 00 80 00 00\n";
  const char* const versionAnswer = "04 0E 07 01 05 FC 00 37 00 06";
  struct {
    const Step& run;
    std::deque<std::pair<int32_t, std::string>> answers;  // receive result, packet
    bool failSend, result;
    std::string transcript, sent;
    size_t unread = 0;
  } const cases[] = {
      // clang-format off
      {version, {{9, versionAnswer}}, false, true, versionEvt + "[OK]\n", "05 FC 01 FF\n"},
      {version, {{0, ""}}, false, false, versionEvt + "[FAIL] Cannot read from device. Exit\n",
       "05 FC 01 FF\n"},
      {version, {}, true, false, versionCmd + "[FAIL] Send command failed\n", ""},
      {params, {{0, "04 0E 0A 01 05 FC 00 00 00 00 00 00 00"}}, false, true,
       paramsEvt + "[FAIL] Invalid event\n" + reset + "[OK]\n", paramsSent},
      {params, {}, false, true, paramsEvt + "[FAIL] Read event failed\n" + reset + "[OK]\n",
       paramsSent},
      {toBootloader, {}, true, true, reset + "[FAIL] Send command failed\n", ""},
      {ddc, {{0, "04 FF 00"}, {0, "04 0E 04 01 05 FC 00"}, {0, "04 0E 04 01 8B FC 00"},
             {0, versionAnswer}}, false, false, "", "8B FC 04 03 86 01 01\n", 1},
      {ddc, {{0, "04 FF 00"}}, true, false, "", "", 1},
      // clang-format on
  };
  for (size_t i = 0; i < std::size(cases); ++i) {
    SCOPED_TRACE(i);
    const auto& c = cases[i];
    controller = {};
    for (const auto& [result, hex] : c.answers)
      controller.answers.push_back({PacketFromHex(hex), result});
    if (c.failSend) controller.failSendFrom = 0;
    console.Clear();
    EXPECT_EQ(c.run(), c.result);
    EXPECT_EQ(console.Err(), c.transcript);
    EXPECT_EQ(controller.SentHex(), c.sent);
    EXPECT_EQ(controller.answers.size(), c.unread);
  }
}

TEST_F(HciLayer, DecideDownloadAnswersAndExplainsForEveryKindOfVersionAnswer) {
  const std::string ram = "RAM Device detected. Skipping MANF_MODE enter/exit\n";
  const std::string operational = "Device is in Operational Mode. Start BDDATA/DDC downloading.\n";
  struct {
    bool tlv, bdData, result;
    uint8_t rateCode;
    std::vector<std::pair<size_t, uint8_t>> bytes;  // event positions set
    std::string messages;
  } const cases[] = {
      // clang-format off
      {true, false, false, 4, {{43, 1}},
       "TLV Response Image Type is 01. Device in Bootloader Mode. Start FW downloading.\n"},
      {true, false, true, 4, {{43, 2}, {8, 7}}, ""},
      {false, false, false, 4, {{8, 7}}, "Quenby device detected, MANF_MODE enter/exit will happen\n"},
      {false, false, true, 4, {{8, 8}, {15, 0x23}},
       "Tarvok device detected, MANF_MODE enter/exit will happen\n"
       "FW has already been downloaded, patch version: 0x23\n"},
      {false, true, false, 10, {{10, 6}}, ram + "Device in Bootloader Mode. Start FW downloading.\n"},
      {false, true, false, 4, {{10, 1}}, ram + operational},
      {false, true, true, 10, {{10, 1}},
       ram + operational + "BDData must be downloaded at baud rate 115200\n"},
      {false, false, true, 4, {{10, 1}, {15, 3}}, ram + "FW has already been downloaded\n"},
      // clang-format on
  };
  for (const auto& c : cases) {
    std::array<uint8_t, kEventBufferSize> event{};
    for (const auto& [index, value] : c.bytes) event[index] = value;
    g_runOptions.downloadBdData = c.bdData;
    g_runOptions.baudRateCode = c.rateCode;
    console.Clear();
    EXPECT_EQ(DecideDownload(event.data(), c.tlv), c.result) << c.messages;
    EXPECT_EQ(console.Err(), c.messages);
  }
}

}  // namespace
}  // namespace qrx::test
