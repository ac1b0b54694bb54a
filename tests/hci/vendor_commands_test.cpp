#include "hci/vendor_commands.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <deque>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "app/options.h"
#include "hci/hci_exchange.h"
#include "platform/console.h"
#include "transport/hci_api.h"

namespace qrx {
namespace {

using Answers = std::deque<std::pair<int32_t, std::string>>;

// The HCI layer on the UART path (-i 2) with the fixture as the controller.
// Each receive takes the next scripted answer: the transport result and the
// packet as hex text (none left reads as silence, -1). Every command sent is
// kept as one line of hex text.
class HciLayer : public ::testing::Test, public IBtHciAPI {
 protected:
  void SetUp() override {
    g_runOptions = RunOptions{.interface = kInterfaceUart};
    SetActiveTransport(this);
  }
  void TearDown() override {
    SetActiveTransport(nullptr);
    RestoreResetTemplate();
  }
  int32_t SendCommand(const uint8_t* command, uint32_t length) override {
    for (uint32_t i = 0; i < length; ++i) {
      char hex[4];
      std::snprintf(hex, sizeof hex, i + 1 < length ? "%02X " : "%02X\n", command[i]);
      sent += hex;
    }
    return static_cast<int32_t>(length + 1);
  }
  int32_t ReceivePacket(uint8_t* destination, uint32_t* length, uint32_t) override {
    if (answers.empty()) return -1;
    std::istringstream hex(answers.front().second);
    *length = 0;
    for (unsigned byte = 0; hex >> std::hex >> byte;) destination[(*length)++] = uint8_t(byte);
    const int32_t result = answers.front().first;
    answers.pop_front();
    return result;
  }
  int8_t Open(int32_t) override { return 0; }
  void Close() override {}
  void SetLocalBaudRate(uint32_t) override {}
  int32_t SwitchBaudRate(uint8_t, uint32_t, uint8_t, uint8_t) override { return 0; }

  Answers answers;
  std::string sent;
  ConsoleCapture console;
};

const std::string kVersion =
    "CMD: Read Norix Version                  [OK]\nEVT: CommandComplete <Norix Version>     ";
const std::string kParams =
    "CMD: Read Secure Boot Params             [OK]\nEVT: CommandComplete <Sec Boot Params>   ";
const std::string kResetOk = "CMD: Norix HCI Reset                     [OK]\n";
const std::string kVersionAnswer = "04 0E 07 01 05 FC 00 37 00 06", kVersionSent = "05 FC 01 FF\n";
const std::string kParamsSent = "0D FC 00\n", kResetAt8000 = "01 FC 08 00 00 00 01 00 80 00 00\n";

TEST_F(HciLayer, VendorExchangesPrintTheirStepsSendTheirBytesAndJudgeTheAnswers) {
  const struct {
    bool params;  // Read Secure Boot Params and the boot-address reset, else Read Version
    Answers answers;
    bool result;
    std::string transcript, sent;
  } cases[] = {
      // clang-format off
      {false, {{0, kVersionAnswer}}, true, kVersion + "[OK]\n", kVersionSent},
      {false, {{0, "04 FF 02 19 00"}, {0, "04 0E 04 01 0D FC 00"}, {9, kVersionAnswer}}, true,
       kVersion + "[OK]\n", kVersionSent},
      // The answer to a reset still pending sends the command again.
      {false, {{0, "04 0E 04 01 01 FC 00"}, {0, kVersionAnswer}}, true,
       kVersion + "[FAIL] Received Unexpected Event\n" + kVersion + "[OK]\n",
       kVersionSent + kVersionSent},
      {false, {}, false, kVersion + "[FAIL] Read event failed\n", kVersionSent},
      // The reset shows where the boot address ended up.
      {true, {{0, "04 0E 0A 01 0D FC 00 00 00 00 00 00 00"}, {0, "04 FF 00"}}, true,
       kParams + "[OK]\nSecureBoot Disabled. Update Boot Address [OK]\n"
                 "Reset[8] = 00 Reset[9] = 08 Reset[10] = 04 Reset[11] = 00 \n" + kResetOk,
       kParamsSent + "01 FC 08 00 00 00 01 00 08 04 00\n"},
      {true, {{0, "04 0E 0A 01 0D FC 00 00 00 00 00 00 01"}}, true, kParams + "[OK]\n" + kResetOk,
       kParamsSent + kResetAt8000},
      {true, {{0, "04 0E 0A 01 0D FC 11 00 00 00 00 00 00"}}, true,
       kParams + "[FAIL] Invalid event\n" + kResetOk, kParamsSent + kResetAt8000},
      // clang-format on
  };
  for (const auto& c : cases) {
    RestoreResetTemplate();
    answers = c.answers;
    sent.clear();
    console.Clear();
    std::array<uint8_t, kEventBufferSize> event{};
    if (c.params) {
      ReadSecureBootParams();
      SendVendorReset(false);
    } else {
      EXPECT_EQ(ReadVersion(event.data()), c.result) << c.transcript;
      EXPECT_EQ(event[4] == 0x05 && event[9] == 0x06, c.result);  // the answer stays
    }
    EXPECT_EQ(console.Err(), c.transcript);
    EXPECT_EQ(sent, c.sent);
    EXPECT_TRUE(answers.empty());
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
}  // namespace qrx
