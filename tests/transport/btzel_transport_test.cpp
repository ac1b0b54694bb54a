#include "transport/btzel_transport.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <thread>
#include <vector>

#include "platform/console.h"
#include "support/pty_peer.h"

namespace qrx {
namespace {

using Bytes = std::vector<uint8_t>;
using Clock = std::chrono::steady_clock;

const Bytes kCommandComplete{0x04, 0x0E, 0x04, 0x01, 0x05, 0xFC, 0x00};
const Bytes kEnterManfMode{0x01, 0x11, 0xFC, 0x02, 0x01, 0x00};
const Bytes kExitManfMode{0x01, 0x11, 0xFC, 0x02, 0x00, 0x00};

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

TEST_F(TransportTest, EventSplitOverThreeWritesComesBackWhole) {
  auto script = std::async(std::launch::async, [this] {
    for (const Bytes& piece : {Bytes{0x04, 0x0E}, Bytes{0x04, 0x01}, Bytes{0x05, 0xFC, 0x00}}) {
      peer_.Write(piece);
      std::this_thread::sleep_for(std::chrono::milliseconds(30));
    }
  });
  EXPECT_EQ(Receive(), kCommandComplete);
}

// Noise in front of two events back to back: the noise goes with the header
// read that met it, the events come one a call.
TEST_F(TransportTest, LineNoiseFailsSilentlyThenEventsComeOneACall) {
  const Bytes vendor{0x04, 0xFF, 0x02, 0xAB, 0xCD};
  Bytes line{0xFF, 0x00, 0x00};
  line.insert(line.end(), kCommandComplete.begin(), kCommandComplete.end());
  line.insert(line.end(), vendor.begin(), vendor.end());
  Deliver(line);
  ConsoleCapture capture;
  EXPECT_EQ(Receive(), Bytes{});
  EXPECT_EQ(Receive(), kCommandComplete);
  EXPECT_EQ(Receive(), vendor);
  EXPECT_EQ(capture.Err() + capture.Out(), "");
}

TEST_F(TransportTest, SilentControllerEndsTheReceiveAfterAboutASecond) {
  ConsoleCapture capture;
  const auto start = Clock::now();
  EXPECT_EQ(Receive(), Bytes{});
  const double waited = std::chrono::duration<double>(Clock::now() - start).count();
  EXPECT_GT(waited, 0.9);
  EXPECT_LT(waited, 5.0);
  EXPECT_EQ(capture.Err(), "ERROR: unable to read data from device\n");
}

// A data packet's length lies beyond the three header bytes read, so it comes
// from what the previous packet left in the buffer.
TEST_F(TransportTest, OversizePacketIsRefused) {
  Deliver(kCommandComplete);  // leaves 01 05 where the length is looked for
  EXPECT_EQ(Receive(), kCommandComplete);
  Deliver({0x02, 0x00, 0x20});
  ConsoleCapture capture;
  EXPECT_EQ(Receive(), Bytes{});
  EXPECT_EQ(capture.Err(), "Message size is too long, size = 1286\n");
}

TEST_F(TransportTest, PacketsBeyond259BytesArriveAsACleared259ByteBuffer) {
  struct Case {
    Bytes primer;  // sets the stale length bytes
    uint8_t type;
    uint32_t total;
    bool copied;
  };
  const Case cases[] = {
      {{0x04, 0xFF, 0x01, 0xFF}, 0x01, 259, true},         // 4 + 255
      {{0x04, 0xFF, 0x02, 0x03, 0x01}, 0x02, 264, false},  // 5 + 259
      {{0x04, 0xFF, 0x02, 0x0B, 0x01}, 0x02, 272, false},  // 5 + 267
  };
  for (const Case& c : cases) {
    Deliver(c.primer);
    ASSERT_EQ(Receive(), c.primer);
    Bytes packet(c.total);
    for (size_t i = 0; i < packet.size(); ++i) packet[i] = static_cast<uint8_t>(i + 1);
    packet[0] = c.type;
    auto script = std::async(std::launch::async, [&] { peer_.Write(packet); });
    Bytes destination(300, 0xAA);
    uint32_t length = 0;
    ConsoleCapture capture;
    EXPECT_EQ(transport_.ReceivePacket(destination.data(), &length, 3000), 0);
    EXPECT_EQ(length, c.total);
    const Bytes expected = c.copied ? packet : Bytes(kReceiveCopyCapacity, 0);
    EXPECT_EQ(Bytes(destination.begin(), destination.begin() + kReceiveCopyCapacity),
              Bytes(expected.begin(), expected.begin() + kReceiveCopyCapacity))
        << c.total;
    EXPECT_EQ(Bytes(destination.begin() + kReceiveCopyCapacity, destination.end()),
              Bytes(300 - kReceiveCopyCapacity, 0xAA));
    EXPECT_EQ(capture.Err(), "");
  }
}

TEST_F(TransportTest, SwitchSendsTheRateCommandAndFollowsWithTheHost) {
  struct Case {
    uint8_t code;
    uint32_t rate;
    uint8_t useCode;
    Bytes command;
    const char* transcript;
  };
  const Case cases[] = {
      {4,
       9600,
       1,
       {0x01, 0x06, 0xFC, 0x01, 0x04},
       "CMD: Set Baud Rate (0x04)           [OK]\n"
       "Setting Local Baud Rate to (0009600)     [OK]\n"},
      {10,
       3000000,
       0,
       {0x01, 0x10, 0xFC, 0x06, 0x00, 0x00, 0xC0, 0xC6, 0x2D, 0x00},
       "CMD: Change Baud Rate (3000000)          [OK]\n"
       "Setting Local Baud Rate to (3000000)     [OK]\n"},
  };
  for (const Case& c : cases) {
    auto seen = std::async(std::launch::async, [&] { return peer_.Read(c.command.size()); });
    ConsoleCapture capture;
    EXPECT_EQ(transport_.SwitchBaudRate(c.code, c.rate, 0, c.useCode), 1);
    EXPECT_EQ(seen.get(), c.command);
    EXPECT_EQ(capture.Err(), c.transcript);
    EXPECT_EQ(capture.Out(), "");
    EXPECT_EQ(peer_.LineRate(), c.rate);
  }
}

TEST_F(TransportTest, ManufacturerModeAnswerIsCheckedButForItsCredits) {
  const std::string enter = "CMD: Enter Manf Mode...                  \n[OK]\n";
  const std::string event = "EVT: Command Complete (Manf Mode)...     \n";
  const std::string rate =
      "CMD: Change Baud Rate (3000000)          [OK]\n"
      "Setting Local Baud Rate to (3000000)     [OK]\n";
  const std::string exit = "CMD: Exit Manf Mode...                   \n[OK]\n";
  const auto mismatch = [](const char* mode) {
    const std::string failed =
        std::string("Failed to recieve Command Complete (") + mode + " Manf Mode) event.\n";
    return "[FAILED] at 4\n" + failed + "[FAILED] at 6\n" + failed;
  };
  const struct {
    Bytes answer;
    std::string transcript;
  } cases[] = {
      {{0x04, 0x0E, 0x04, 0x02, 0x11, 0xFC, 0x00},
       enter + event + "[OK]\n" + rate + exit + event + "[OK]\n"},
      {{0x04, 0x0E, 0x04, 0x01, 0x05, 0xFC, 0x0C},
       enter + event + mismatch("Enter") + "[OK]\n" + rate + exit + event + mismatch("Exit") +
           "[OK]\n"},
  };
  const Bytes change{0x01, 0x10, 0xFC, 0x06, 0x00, 0x00, 0xC0, 0xC6, 0x2D, 0x00};
  Bytes expected = kEnterManfMode;
  expected.insert(expected.end(), change.begin(), change.end());
  expected.insert(expected.end(), kExitManfMode.begin(), kExitManfMode.end());
  for (const auto& c : cases) {
    auto controller = std::async(std::launch::async, [&] {
      Bytes seen = peer_.Read(kEnterManfMode.size());
      peer_.Write(c.answer);
      const Bytes rest = peer_.Read(change.size() + kExitManfMode.size());
      peer_.Write(c.answer);
      seen.insert(seen.end(), rest.begin(), rest.end());
      return seen;
    });
    ConsoleCapture capture;
    EXPECT_EQ(transport_.SwitchBaudRate(10, 3000000, 1, 0), 1);
    EXPECT_EQ(controller.get(), expected);
    EXPECT_EQ(capture.Err(), c.transcript);
    EXPECT_EQ(capture.Out(), "");
  }
}

}  // namespace
}  // namespace qrx
