#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <future>
#include <numeric>
#include <optional>
#include <string>
#include <vector>

#include "hci/btzel_transport.h"
#include "platform/console.h"
#include "support/pty_peer.h"
#include "support/scoped_env.h"
#include "transport/btzel_serial.h"

namespace qrx {
namespace {

using Bytes = std::vector<uint8_t>;

const Bytes kCommandComplete{0x04, 0x0E, 0x04, 0x01, 0x05, 0xFC, 0x00};

Bytes Cat(std::initializer_list<Bytes> parts) {
  Bytes all;
  for (const Bytes& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

TEST(SerialOpen, PortNamedByTheEnvironmentOpensAt115200AndAMissingOneFails) {
  PtyPeer peer;
  ASSERT_TRUE(peer.Ready());
  ScopedEnv com7("QRXBPL_COM7", peer.SlavePath());
  ScopedEnv com4000("QRXBPL_COM4000", std::nullopt);
  BTZELSERIAL port;
  ConsoleCapture capture;
  ASSERT_EQ(port.OpenPort(7), 0);
  EXPECT_EQ(port.PortPath(), peer.SlavePath());
  EXPECT_EQ(peer.LineRate(), 115200u);
  // RTS cannot be driven on a pseudo-terminal; nobody reports that.
  EXPECT_EQ(capture.Err() + capture.Out(), "");
  BTZELSERIAL missing;
  capture.Clear();
  EXPECT_EQ(missing.OpenPort(4000), -1);
  EXPECT_EQ(capture.Err(), "No such file or directory\n");
  EXPECT_EQ(missing.PortPath(), "/dev/ttyS3999");
}

// A -p value names its device by itself unless it is COMn or a relative path.
TEST(SerialOpen, DeviceNamedByThePortValue) {
  const struct {
    const char* name;
    const char* path;
  } cases[] = {
      {"/dev/pts/7", "/dev/pts/7"},
      {"ttyUSB0", "/dev/ttyUSB0"},
      {"COM3", ""},
      {"com12", ""},
      {"COM-2147483648", ""},
      {"CO", "/dev/CO"},
      {"serial/by-id/x", ""},
      {"", ""},
  };
  for (const auto& c : cases) EXPECT_EQ(SerialDevicePathForName(c.name), c.path) << c.name;
  EXPECT_EQ(SerialDevicePathForPort(INT32_MIN), "/dev/ttyS-2147483649");
}

class TransportTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(peer_.Ready());
    SetSerialDevicePath(peer_.SlavePath().c_str());
    ASSERT_EQ(transport_.Open(3), 0);
  }
  void TearDown() override { SetSerialDevicePath(nullptr); }

  // Sends bytes and waits until the host could read all of them in one go.
  void Deliver(const Bytes& bytes) {
    ASSERT_TRUE(peer_.Write(bytes));
    ASSERT_TRUE(peer_.WaitUntilHostHas(bytes.size()));
  }

  // One receive; the packet as returned (empty on failure).
  Bytes Receive() {
    Bytes packet(kReceiveCopyCapacity, 0xAA);
    uint32_t length = 0;
    if (transport_.ReceivePacket(packet.data(), &length, 3000) != 0) return {};
    packet.resize(std::min<size_t>(length, packet.size()));
    return packet;
  }

  PtyPeer peer_;
  BTZELTransport transport_{2};
};

TEST_F(TransportTest, CommandsGoOutBehindTheTypeByteUpTo2048Bytes) {
  Bytes longest(2049);
  std::iota(longest.begin(), longest.end(), uint8_t{0x10});
  const Bytes readVersion{0x05, 0xFC, 0x00};
  EXPECT_EQ(transport_.SendCommand(longest.data(), 2048), 2049);
  EXPECT_EQ(peer_.Read(2049), Cat({{0x01}, Bytes(longest.begin(), longest.end() - 1)}));
  ConsoleCapture capture;
  EXPECT_EQ(transport_.SendCommand(longest.data(), 2049), -1);
  EXPECT_EQ(transport_.SendCommand(readVersion.data(), 3), 4);
  // Any byte of the refused command would come first.
  EXPECT_EQ(peer_.Read(4), Cat({{0x01}, readVersion}));
  EXPECT_EQ(capture.Err() + capture.Out(), "");
}

// Noise in front of two events back to back: the noise goes with the header
// read that met it, the events come one a call, then the line falls silent.
TEST_F(TransportTest, NoiseFailsSilentlyEventsComeOneACallAndSilenceEndsTheReceive) {
  const Bytes vendor{0x04, 0xFF, 0x02, 0xAB, 0xCD};
  Deliver(Cat({{0xFF, 0x00, 0x00}, kCommandComplete, vendor}));
  ConsoleCapture capture;
  EXPECT_EQ(Receive(), Bytes{});
  EXPECT_EQ(Receive(), kCommandComplete);
  EXPECT_EQ(Receive(), vendor);
  EXPECT_EQ(capture.Err() + capture.Out(), "");
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(Receive(), Bytes{});
  const std::chrono::duration<double> waited = std::chrono::steady_clock::now() - start;
  EXPECT_TRUE(waited.count() > 0.9 && waited.count() < 5.0) << waited.count();
  EXPECT_EQ(capture.Err(), "ERROR: unable to read data from device\n");
}

// A data packet's length lies beyond the three header bytes read, so it comes
// from what the primer left in the buffer. Past the caller's 259 bytes the
// packet clears them and still succeeds; past the receive buffer it is refused.
TEST_F(TransportTest, DataPacketLengthsComeFromStaleBytes) {
  const struct {
    Bytes primer;
    uint8_t type;
    uint32_t total;
    const char* refusal;  // null: received
  } cases[] = {
      {{0x04, 0xFF, 0x01, 0xFF}, 0x01, 259, nullptr},                             // 4 + 255
      {{0x04, 0xFF, 0x02, 0x03, 0x01}, 0x02, 264, nullptr},                       // 5 + 259
      {{0x04, 0xFF, 0x02, 0x0B, 0x01}, 0x02, 272, nullptr},                       // 5 + 267
      {kCommandComplete, 0x02, 1286, "Message size is too long, size = 1286\n"},  // 5 + 0x0501
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.total);
    Deliver(c.primer);
    ASSERT_EQ(Receive(), c.primer);
    Bytes packet(c.refusal ? 3 : c.total);
    std::iota(packet.begin(), packet.end(), c.type);
    ASSERT_TRUE(peer_.Write(packet));
    Bytes destination(300, 0xAA), expected(300, 0xAA);
    uint32_t length = 0;
    ConsoleCapture capture;
    EXPECT_EQ(transport_.ReceivePacket(destination.data(), &length, 3000), c.refusal ? -1 : 0);
    EXPECT_EQ(capture.Err(), c.refusal ? c.refusal : "");
    if (!c.refusal) {
      EXPECT_EQ(length, c.total);
      std::fill_n(expected.begin(), kReceiveCopyCapacity, 0);
      if (c.total <= kReceiveCopyCapacity) std::ranges::copy(packet, expected.begin());
    }
    EXPECT_EQ(destination, expected);
  }
}

// Only the manufacturer-mode commands are answered; their check skips the
// credits byte.
TEST_F(TransportTest, SwitchSendsTheRateCommandAndFollowsWithTheHost) {
  const Bytes enter{0x01, 0x11, 0xFC, 0x02, 0x01, 0x00};
  const Bytes change{0x01, 0x10, 0xFC, 0x06, 0x00, 0x00, 0xC0, 0xC6, 0x2D, 0x00};
  const Bytes exit{0x01, 0x11, 0xFC, 0x02, 0x00, 0x00};
  const std::string event = "EVT: Command Complete (Manf Mode)...     \n";
  const std::string entered = "CMD: Enter Manf Mode...                  \n[OK]\n" + event;
  const std::string switched =
      "CMD: Change Baud Rate (3000000)          [OK]\n"
      "Setting Local Baud Rate to (3000000)     [OK]\n"
      "CMD: Exit Manf Mode...                   \n[OK]\n" +
      event;
  const auto mismatch = [](const char* mode) {
    const std::string failed =
        std::string("Failed to recieve Command Complete (") + mode + " Manf Mode) event.\n";
    return "[FAILED] at 4\n" + failed + "[FAILED] at 6\n" + failed + "[OK]\n";
  };
  const struct {
    uint8_t code, manufacturerMode, useCode;
    uint32_t rate;
    Bytes answer, sent;
    std::string transcript;
  } cases[] = {
      // clang-format off
      {4, 0, 1, 9600, {}, {0x01, 0x06, 0xFC, 0x01, 0x04},
       "CMD: Set Baud Rate (0x04)           [OK]\nSetting Local Baud Rate to (0009600)     [OK]\n"},
      {10, 1, 0, 3000000, {0x04, 0x0E, 0x04, 0x02, 0x11, 0xFC, 0x00}, Cat({enter, change, exit}),
       entered + "[OK]\n" + switched + "[OK]\n"},
      {10, 1, 0, 3000000, {0x04, 0x0E, 0x04, 0x01, 0x05, 0xFC, 0x0C}, Cat({enter, change, exit}),
       entered + mismatch("Enter") + switched + mismatch("Exit")},
      // clang-format on
  };
  for (const auto& c : cases) {
    auto controller = std::async(std::launch::async, [&] {
      if (c.answer.empty()) return peer_.Read(c.sent.size());
      Bytes seen = peer_.Read(enter.size());
      peer_.Write(c.answer);
      seen = Cat({seen, peer_.Read(c.sent.size() - enter.size())});
      peer_.Write(c.answer);
      return seen;
    });
    ConsoleCapture capture;
    EXPECT_EQ(transport_.SwitchBaudRate(c.code, c.rate, c.manufacturerMode, c.useCode), 1);
    EXPECT_EQ(controller.get(), c.sent);
    EXPECT_EQ(capture.Err(), c.transcript);
    EXPECT_EQ(peer_.LineRate(), c.rate);
  }
}

}  // namespace
}  // namespace qrx
