#include "transport/btzel_serial.h"

#include <gtest/gtest.h>

#include <chrono>
#include <numeric>
#include <optional>
#include <vector>

#include "platform/console.h"
#include "support/pty_peer.h"
#include "support/scoped_env.h"

namespace qrx {
namespace {

using Bytes = std::vector<uint8_t>;

class SerialPortTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(peer_.Ready());
    SetSerialDevicePath(peer_.SlavePath().c_str());
    ASSERT_EQ(port_.OpenPort(1), 0);
  }
  void TearDown() override { SetSerialDevicePath(nullptr); }

  PtyPeer peer_;
  BTZELSERIAL port_;
};

TEST(SerialDevicePath, OverrideThenEnvironmentThenTtyS) {
  struct Case {
    const char* override;
    std::optional<std::string> com12;
    int32_t port;
    const char* expected;
  } const cases[] = {
      {nullptr, std::nullopt, 1, "/dev/ttyS0"},
      {nullptr, std::nullopt, 12, "/dev/ttyS11"},
      {nullptr, "/dev/ttyUSB0", 12, "/dev/ttyUSB0"},
      {nullptr, "/dev/ttyUSB0", 3, "/dev/ttyS2"},
      {nullptr, "", 12, "/dev/ttyS11"},
      {"/dev/pts/7", "/dev/ttyUSB0", 12, "/dev/pts/7"},
      {"", "/dev/ttyUSB0", 12, "/dev/ttyUSB0"},
  };
  for (const Case& c : cases) {
    ScopedEnv com12("QRXBPL_COM12", c.com12);
    SetSerialDevicePath(c.override);
    EXPECT_EQ(SerialDevicePathForPort(c.port), c.expected) << "COM" << c.port;
  }
  SetSerialDevicePath(nullptr);
}

TEST(SerialOpen, MissingDevicePrintsThePlatformTextAndFails) {
  ScopedEnv unset("QRXBPL_COM4000", std::nullopt);
  for (const char* path : {"/nonexistent-qrx/ttyQ0", static_cast<const char*>(nullptr)}) {
    SetSerialDevicePath(path);
    BTZELSERIAL port;
    ConsoleCapture capture;
    EXPECT_EQ(port.OpenPort(4000), -1);
    EXPECT_EQ(capture.Err(), "No such file or directory\n");
    EXPECT_EQ(capture.Out(), "");
    EXPECT_EQ(port.PortPath(), path ? path : "/dev/ttyS3999");
  }
  SetSerialDevicePath(nullptr);
}

TEST(SerialOpen, ComNumberNamedByEnvironmentOpensAt115200WithOneSecondReads) {
  PtyPeer peer;
  ASSERT_TRUE(peer.Ready());
  ScopedEnv com7("QRXBPL_COM7", peer.SlavePath());
  BTZELSERIAL port;
  ConsoleCapture capture;
  ASSERT_EQ(port.OpenPort(7), 0);
  EXPECT_EQ(port.PortPath(), peer.SlavePath());
  EXPECT_EQ(peer.LineRate(), 115200u);
  EXPECT_EQ(port.Timeouts(), (CommTimeouts{kMaxDword, kMaxDword, 1000, 0, 0}));
  const uint8_t reset[] = {0x03, 0x0C, 0x00};
  EXPECT_EQ(port.WriteHciCommand(reset, sizeof reset), 4);
  EXPECT_EQ(peer.Read(4), (Bytes{0x01, 0x03, 0x0C, 0x00}));
  // RTS cannot be driven on a pseudo-terminal; nobody reports that.
  EXPECT_EQ(capture.Err() + capture.Out(), "");
}

TEST_F(SerialPortTest, WriteHciCommandPutsTheTypeByteInFrontUpTo2048Bytes) {
  struct Case {
    bool null;
    uint32_t length;
    int32_t result;
  } const cases[] = {{false, 3, 4},    {true, 0, 1}, {false, 2048, 2049},
                     {false, 2049, 0}, {true, 5, 0}, {false, 0, 1}};
  constexpr uint8_t kMarker = 0xA5;
  for (const Case& c : cases) {
    Bytes command(c.length);
    std::iota(command.begin(), command.end(), uint8_t{0x10});
    EXPECT_EQ(port_.WriteHciCommand(c.null ? nullptr : command.data(), c.length), c.result);
    // A raw marker behind it shows exactly what, if anything, went out.
    ASSERT_EQ(port_.WriteRaw(&kMarker, 1), 1);
    Bytes expected;
    if (c.result != 0) {
      expected.push_back(0x01);
      expected.insert(expected.end(), command.begin(), command.end());
    }
    expected.push_back(kMarker);
    EXPECT_EQ(peer_.Read(expected.size()), expected) << c.length;
  }
}

// The silent one-second read after OpenPort is covered through the transport.
TEST_F(SerialPortTest, ReadBytesFollowsTheTimeoutWords) {
  const auto seconds = [start = std::chrono::steady_clock::now()] {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  };
  uint8_t buffer[16] = {};
  uint32_t got = 0;
  EXPECT_EQ(port_.ReadBytes(nullptr, &got, nullptr, nullptr, 3, 3000), -1);
  EXPECT_EQ(port_.ReadBytes(buffer, nullptr, nullptr, nullptr, 3, 3000), -1);
  // After OpenPort: what is waiting comes at once, however much was asked for.
  ASSERT_TRUE(peer_.Write({0x04, 0x0E}));
  ASSERT_TRUE(peer_.WaitUntilHostHas(2));
  EXPECT_EQ(port_.ReadBytes(buffer, &got, nullptr, nullptr, 5, 3000), 0);
  EXPECT_EQ(Bytes(buffer, buffer + got), (Bytes{0x04, 0x0E}));
  // Constant before multiplier in the arguments, each into its own word.
  ASSERT_EQ(port_.SetTimeouts(50, 50, 10, 60, 20), 1);
  EXPECT_EQ(port_.Timeouts(), (CommTimeouts{50, 10, 50, 20, 60}));
  // Two bytes of ten: the 50 ms gap after them ends the read.
  ASSERT_TRUE(peer_.Write({0x0E, 0x04}));
  EXPECT_EQ(port_.ReadBytes(buffer, &got, nullptr, nullptr, 10, 3000), 0);
  EXPECT_EQ(Bytes(buffer, buffer + got), (Bytes{0x0E, 0x04}));
  // Nothing at all: 50 ms + 3 x 10 ms, far below the second after OpenPort.
  EXPECT_EQ(port_.ReadBytes(buffer, &got, nullptr, nullptr, 3, 3000), -1);
  EXPECT_EQ(got, 0u);
  EXPECT_LT(seconds(), 0.9);
}

TEST_F(SerialPortTest, FlushInputAndReadRawReportWhatTheyRead) {
  Bytes burst(300);
  std::iota(burst.begin(), burst.end(), uint8_t{0});
  ASSERT_TRUE(peer_.Write(burst));
  ASSERT_TRUE(peer_.WaitUntilHostHas(300));
  ConsoleCapture capture;
  EXPECT_EQ(port_.FlushInput(), 1);
  Bytes rest(41);
  EXPECT_EQ(port_.ReadRaw(rest.data(), 41), 1);
  EXPECT_EQ(rest, Bytes(burst.begin() + 259, burst.end()));
  ASSERT_TRUE(peer_.Write({1, 2, 3, 4}));
  ASSERT_TRUE(peer_.WaitUntilHostHas(4));
  EXPECT_EQ(port_.ReadRaw(rest.data(), 10), 0);
  EXPECT_EQ(capture.Out(), "readcom 41\nreadcom 4\n");
  EXPECT_EQ(capture.Err(), "");
}

TEST(SerialClosed, EveryOperationFailsWithItsOwnMessage) {
  BTZELSERIAL port;
  ConsoleCapture capture;
  uint8_t buffer[4] = {};
  uint32_t got = 7;
  EXPECT_EQ(port.WriteRaw(buffer, 1), 0);
  EXPECT_EQ(port.WriteHciCommand(buffer, 1), 0);
  EXPECT_EQ(port.ReadRaw(buffer, 4), 0);
  EXPECT_EQ(port.ReadBytes(buffer, &got, nullptr, nullptr, 4, 3000), -1);
  EXPECT_EQ(got, 0u);
  EXPECT_EQ(port.SetBaudRate(921600), 0);
  EXPECT_EQ(port.Purge(), 0);
  EXPECT_EQ(port.FlushInput(), 0);
  EXPECT_EQ(port.SetTimeouts(50, 50, 10, 50, 10), 0);
  EXPECT_EQ(capture.Out(),
            "Failed to call WriteFile\nFailed to call GetCommState\nFailed to call SetCommState\n");
  EXPECT_EQ(capture.Err(), "");
}

TEST(SerialClosed, ClosingTwiceLeavesADescriptorReusedMeanwhileAlone) {
  PtyPeer first;
  ASSERT_TRUE(first.Ready());
  SetSerialDevicePath(first.SlavePath().c_str());
  auto port = std::make_unique<BTZELSERIAL>();
  ASSERT_EQ(port->OpenPort(1), 0);
  port->ClosePort();
  // The next descriptors opened may well carry the number the port had.
  PtyPeer second;
  ASSERT_TRUE(second.Ready());
  SetSerialDevicePath(second.SlavePath().c_str());
  BTZELSERIAL other;
  ASSERT_EQ(other.OpenPort(1), 0);
  port.reset();  // closes again
  const uint8_t ping = 0x5A;
  EXPECT_EQ(other.WriteRaw(&ping, 1), 1);
  EXPECT_EQ(second.Read(1), Bytes{0x5A});
  SetSerialDevicePath(nullptr);
}

}  // namespace
}  // namespace qrx
