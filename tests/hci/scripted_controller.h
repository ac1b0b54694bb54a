#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <deque>
#include <sstream>
#include <string>
#include <utility>

#include "app/options.h"
#include "hci/hci_exchange.h"
#include "hci/vendor_commands.h"
#include "platform/console.h"
#include "transport/hci_api.h"

namespace qrx::test {

// A UART-side controller. Each receive takes the next scripted answer: the
// transport result and the packet as hex text (none left reads as silence,
// -1). Every command sent is kept as one line of hex text.
struct ScriptedController final : IBtHciAPI {
  std::deque<std::pair<int32_t, std::string>> answers;
  std::string sent;
  bool failSend = false;

  int32_t SendCommand(const uint8_t* command, uint32_t length) override {
    if (failSend) return -1;
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
};

// The HCI layer on the UART path (-i 2) with the scripted controller behind it.
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
  ScriptedController controller;
  ConsoleCapture console;
};

}  // namespace qrx::test
