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

const std::string kVersion =
    "CMD: Read Norix Version                  [OK]\n"
    "EVT: CommandComplete <Norix Version>     ";
const std::string kParams =
    "CMD: Read Secure Boot Params             [OK]\n"
    "EVT: CommandComplete <Sec Boot Params>   ";
const std::string kReset = "CMD: Norix HCI Reset                     ";
const char* const kVersionAnswer = "04 0E 07 01 05 FC 00 37 00 06";
const char* const kVersionSent = "05 FC 01 FF\n";
const char* const kParamsSent = "0D FC 00\n";
const char* const kDdcSent = "8B FC 04 03 86 01 01\n";

TEST_F(HciLayer, VendorExchangesPrintTheirStepsSendTheirBytesAndJudgeTheAnswers) {
  std::array<uint8_t, kEventBufferSize> event{};
  const std::function<bool()> version = [&] { return ReadVersion(event.data()); };
  // The boot-address reset after the parameters shows where the address ended up.
  const std::function<bool()> params = [] {
    return ReadSecureBootParams(), SendVendorReset(false), true;
  };
  const std::function<bool()> toBootloader = [] { return SendVendorReset(true), true; };
  const std::function<bool()> ddc = [] { return WriteDdcCceBlock(); };
  const std::string resetOk = kReset + "[OK]\n", paramsHead = kParamsSent;
  const std::string resetAt8000 = "01 FC 08 00 00 00 01 00 80 00 00\n";
  struct {
    const std::function<bool()>& run;
    std::deque<std::pair<int32_t, std::string>> answers;
    bool failSend, result;
    std::string transcript, sent;
    size_t unread = 0;
  } const cases[] = {
      // clang-format off
      {version, {{0, kVersionAnswer}}, false, true, kVersion + "[OK]\n", kVersionSent},
      {version, {{0, "04 FF 02 19 00"}, {0, "04 0E 04 01 0D FC 00"}, {9, kVersionAnswer}}, false,
       true, kVersion + "[OK]\n", kVersionSent},
      {version, {{0, "04 0E 04 01 01 FC 00"}, {0, kVersionAnswer}}, false, true,
       kVersion + "[FAIL] Received Unexpected Event\n" + kVersion + "[OK]\n",
       std::string(kVersionSent) + kVersionSent},
      {version, {}, false, false, kVersion + "[FAIL] Read event failed\n", kVersionSent},
      {version, {{0, ""}}, false, false, kVersion + "[FAIL] Cannot read from device. Exit\n",
       kVersionSent},
      {version, {}, true, false,
       "CMD: Read Norix Version                  [FAIL] Send command failed\n", ""},
      {params, {{0, "04 0E 0A 01 0D FC 00 00 00 00 00 00 00"}, {0, "04 FF 00"}}, false, true,
       kParams + "[OK]\nSecureBoot Disabled. Update Boot Address [OK]\n"
                 "Reset[8] = 00 Reset[9] = 08 Reset[10] = 04 Reset[11] = 00 \n" + resetOk,
       paramsHead + "01 FC 08 00 00 00 01 00 08 04 00\n"},
      {params, {{0, "04 0E 0A 01 0D FC 00 00 00 00 00 00 01"}}, false, true,
       kParams + "[OK]\n" + resetOk, paramsHead + resetAt8000},
      {params, {{0, "04 0E 0A 01 0D FC 11 00 00 00 00 00 00"}}, false, true,
       kParams + "[FAIL] Invalid event\n" + resetOk, paramsHead + resetAt8000},
      {params, {{0, "04 0E 0A 01 05 FC 00 00 00 00 00 00 00"}}, false, true,
       kParams + "[FAIL] Invalid event\n" + resetOk, paramsHead + resetAt8000},
      {params, {}, false, true, kParams + "[FAIL] Read event failed\n" + resetOk,
       paramsHead + resetAt8000},
      {toBootloader, {{0, "04 0E 04 01 01 FC 00"}, {0, kVersionAnswer}}, false, true, resetOk,
       "01 FC 08 01 00 00 00 00 00 00 00\n", 1},
      {toBootloader, {}, true, true, kReset + "[FAIL] Send command failed\n", ""},
      {ddc, {{0, "04 FF 00"}, {0, "04 0E 04 01 05 FC 00"}, {0, "04 0E 04 01 8B FC 00"},
             {0, kVersionAnswer}}, false, false, "", kDdcSent, 1},
      {ddc, {{0, "04 FF 00"}}, false, false, "", kDdcSent},
      {ddc, {{0, "04 FF 00"}}, true, false, "", "", 1},
      // clang-format on
  };
  for (size_t i = 0; i < std::size(cases); ++i) {
    SCOPED_TRACE(i);
    const auto& c = cases[i];
    RestoreResetTemplate();
    controller = {};
    for (const auto& [result, hex] : c.answers)
      controller.answers.push_back({PacketFromHex(hex), result});
    if (c.failSend) controller.failSendFrom = 0;
    console.Clear();
    event.fill(0);
    EXPECT_EQ(c.run(), c.result);
    EXPECT_EQ(console.Err(), c.transcript);
    EXPECT_EQ(controller.SentHex(), c.sent);
    EXPECT_EQ(controller.answers.size(), c.unread);
    if (&c.run == &version) {
      EXPECT_EQ(event[4] == 0x05 && event[9] == 0x06, c.result);  // the answer stays
    }
  }
}

TEST_F(HciLayer, DecideDownloadAnswersAndExplainsForEveryKindOfVersionAnswer) {
  const std::string ram = "RAM Device detected. Skipping MANF_MODE enter/exit\n";
  const std::string operational = "Device is in Operational Mode. Start BDDATA/DDC downloading.\n";
  struct {
    bool tlv;
    std::vector<std::pair<size_t, uint8_t>> bytes;  // event positions set
    bool bdData;
    uint8_t rateCode;
    bool result;
    std::string messages;
  } const cases[] = {
      // clang-format off
      {true, {{43, 1}}, false, 4, false,
       "TLV Response Image Type is 01. Device in Bootloader Mode. Start FW downloading.\n"},
      {true, {{43, 2}, {8, 7}}, false, 4, true, ""},
      {false, {{8, 7}}, false, 4, false,
       "Quenby device detected, MANF_MODE enter/exit will happen\n"},
      {false, {{8, 8}, {15, 0x23}}, false, 4, true,
       "Tarvok device detected, MANF_MODE enter/exit will happen\n"
       "FW has already been downloaded, patch version: 0x23\n"},
      {false, {{10, 6}}, true, 10, false,
       ram + "Device in Bootloader Mode. Start FW downloading.\n"},
      {false, {{10, 1}}, true, 4, false, ram + operational},
      {false, {{10, 1}}, true, 10, true,
       ram + operational + "BDData must be downloaded at baud rate 115200\n"},
      {false, {{10, 1}, {15, 3}}, false, 4, true, ram + "FW has already been downloaded\n"},
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
