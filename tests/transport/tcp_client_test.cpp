#include "transport/tcp_client.h"

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "platform/console.h"
#include "support/loopback_peer.h"

namespace qrx {
namespace {

using Bytes = std::vector<uint8_t>;
using test::LoopbackPeer;

const Bytes kPoll = {0x00, 0x00, 0x00, 0x00, 0x10, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
                     0x08, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x10, 0x27, 0x00, 0x00};
const Bytes kEvent = {0x04, 0x0E, 0x04, 0x01, 0x05, 0xFC, 0x00};
const Bytes kOtherEvent = {0x04, 0x0F, 0x04, 0x00, 0x01, 0x09, 0xFC};
// glibc's look-up codes: unknown service name, unknown host.
constexpr int kUnknownServiceError = -8;
constexpr int kUnknownHostError = -2;

Bytes Cat(std::initializer_list<Bytes> parts) {
  Bytes all;
  for (const Bytes& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

// A server message: a prefix the client must skip unread, then H4 bytes.
Bytes Message(const Bytes& h4) {
  return Cat({{0xDE, 0xAD, 0xBE, 0xEF}, h4});
}

Bytes Repeat(const Bytes& part, size_t times) {
  Bytes all;
  for (size_t i = 0; i < times; ++i) all.insert(all.end(), part.begin(), part.end());
  return all;
}

// Answers each poll with the next message; with trailingPoll it takes one more
// poll and then hangs up.
void ServePolls(LoopbackPeer& peer, const std::vector<Bytes>& messages, bool trailingPoll) {
  peer.Run([messages, trailingPoll](LoopbackPeer& p) {
    if (!p.Accept()) return;
    for (const Bytes& message : messages) {
      if (p.ReadExact(kPoll.size()).size() != kPoll.size()) return;
      p.Send(message);
    }
    if (trailingPoll) p.ReadExact(kPoll.size());
  });
}

class TcpClient : public ::testing::Test {
 protected:
  void Connect(const char* port) {
    std::array<char, 1024> address{"127.0.0.1"};
    SetServerAddress(address.data(), address.size());
    ASSERT_TRUE(ConnectToServer(port));
  }
  ConsoleCapture console_;
  LoopbackPeer peer_;
};

struct ReceiveCase {
  const char* name;
  std::vector<Bytes> messages;
  bool hangUp;  // the peer closes after one more poll
  uint32_t capacity;
  bool delivered;
  uint32_t length;  // the received-length word afterwards, also on failure
  Bytes packet;     // what the destination holds afterwards
  const char* console;
};

const Bytes kLongEvent = Cat({{0x04, 0xFF, 0xFF}, Bytes(255, 0x5A)});

const char* const kUnreadable = "ERROR: unable to read data from device\n";
const char* const kCopyFailed = "ERROR: memcpy_s failed! Error=22\n";

// clang-format off
const std::vector<ReceiveCase> kReceiveCases = {
    {"whole event", {Message(kEvent)}, false, 259, true, 7, kEvent, ""},
    {"type byte alone first", {Message({0x04}), Message({0x0E, 0x04, 0x01, 0x05, 0xFC, 0x00})},
     false, 259, true, 7, kEvent, ""},
    {"header split", {Message({0x04, 0x0E}), Message({0x04, 0x01, 0x05, 0xFC, 0x00})},
     false, 259, true, 7, kEvent, ""},
    {"two events, first kept", {Message(Cat({kEvent, kOtherEvent}))}, false, 259, true, 7, kEvent, ""},
    {"acl with 16-bit length", {Message({0x02, 0x01, 0x20, 0x03, 0x00, 0xA1, 0xA2, 0xA3})},
     false, 259, true, 8, {0x02, 0x01, 0x20, 0x03, 0x00, 0xA1, 0xA2, 0xA3}, ""},
    {"longest event", {Message(kLongEvent)}, false, 259, true, 258, kLongEvent, ""},
    {"prefix only", {Message({})}, false, 259, false, 0, {}, kUnreadable},
    {"acl of 273", {Message({0x02, 0x01, 0x20, 0x0C, 0x01})}, false, 259, false, 5, {},
     "Message size is too long, size = 273\n"},
    {"unknown type", {Message({0x05, 0x00, 0x00})}, false, 259, false, 3, {}, ""},
    {"message beyond capacity", {Message(kEvent)}, false, 5, false, 7, Bytes(5, 0), kCopyFailed},
    {"pieces fit, packet does not", {Message({0x04, 0x0E, 0x04}), Message({0x01, 0x05, 0xFC, 0x00})},
     false, 5, false, 4, Bytes(5, 0), kCopyFailed},
    {"peer hangs up mid-packet", {Message({0x04, 0x0E})}, true, 259, false, 0xFFFFFFFC, Bytes(259, 0),
     kCopyFailed},
};
// clang-format on

TEST_F(TcpClient, ReassemblesOnePacketPerCallFromPolledMessages) {
  for (const ReceiveCase& c : kReceiveCases) {
    SCOPED_TRACE(c.name);
    LoopbackPeer peer;
    ServePolls(peer, c.messages, c.hangUp);
    Connect(peer.PortText().c_str());
    console_.Clear();
    Bytes destination(c.capacity, 0xCC);
    uint32_t length = 0xFFFF;
    EXPECT_EQ(ReadSocketEvent(destination.data(), c.capacity, &length, 3000), c.delivered);
    EXPECT_EQ(length, c.length);
    if (c.delivered) destination.resize(length);
    if (!c.packet.empty()) {
      EXPECT_EQ(destination, c.packet);
    }
    EXPECT_EQ(console_.Err(), c.console);
    peer.Join();
    EXPECT_EQ(peer.Received(), Repeat(kPoll, c.messages.size() + (c.hangUp ? 1 : 0)));
    CloseServerConnection();
  }
}

TEST_F(TcpClient, FramesCommandsUpToTheBufferLimit) {
  const Bytes readVersion = {0x05, 0xFC, 0x00, 0x77};  // the last byte is the caller's spare
  const Bytes longest = Cat({{0x09, 0xFC, 0xFF}, Bytes(495, 0x33), {0x77}});
  peer_.Run([&](LoopbackPeer& p) {
    if (p.Accept()) p.ReadExact(16 + 511);
  });
  Connect(peer_.PortText().c_str());
  EXPECT_EQ(SendSocketCmd(readVersion.data(), 4), 16);
  EXPECT_EQ(SendSocketCmd(longest.data(), 499), 511);
  EXPECT_EQ(SendSocketCmd(Bytes(500, 0).data(), 500), -1);
  EXPECT_EQ(SendSocketCmd(nullptr, 4), -1);
  peer_.Join();
  const Bytes header = {0x01, 0x00, 0x00, 0x00, 0x08, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00};
  const Bytes longHeader = {0x01, 0x00, 0x00, 0x00, 0xF7, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00};
  EXPECT_EQ(peer_.Received(), Cat({header,
                                   {0x01, 0x05, 0xFC, 0x00},
                                   longHeader,
                                   {0x01},
                                   Bytes(longest.begin(), longest.end() - 1)}));
  EXPECT_EQ(console_.Err(),
            "Send Packet Size = 16 \n"
            "Send Packet Size = 511 \n"
            "ERROR: Send Length is greater than  DEFAULT_BUFLEN\n"
            "ERROR: SendSocketCmd buffer is empty!\n");
}

TEST_F(TcpClient, StartsEveryCallEmptyAndWaitsPastItsTimeout) {
  peer_.Run([](LoopbackPeer& p) {
    if (!p.Accept()) return;
    p.ReadExact(kPoll.size());
    p.Send(Message(Cat({kEvent, kOtherEvent})));
    p.ReadExact(kPoll.size());
    // Later than the caller's time-out: the client has none on this path.
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    p.Send(Message(kEvent));
  });
  Connect(peer_.PortText().c_str());
  std::array<uint8_t, 259> destination{};
  uint32_t length = 0;
  ASSERT_TRUE(ReadSocketEvent(destination.data(), 259, &length, 3000));
  ASSERT_TRUE(ReadSocketEvent(destination.data(), 259, &length, 20));
  // The event that came along in the first message is gone.
  EXPECT_EQ(Bytes(destination.begin(), destination.begin() + length), kEvent);
  EXPECT_EQ(ReadSocketEvent(nullptr, 259, &length, 3000), false);
  EXPECT_EQ(console_.Err(), "ERROR: Buffer is invalid!\n");
  peer_.Join();
  EXPECT_EQ(peer_.Received(), Repeat(kPoll, 2));
}

TEST_F(TcpClient, SingleReceiveAndRawSendAreUnframed) {
  peer_.Run([](LoopbackPeer& p) {
    if (!p.Accept()) return;
    if (p.ReadExact(kPoll.size()).size() == kPoll.size()) p.Send(Message(kOtherEvent));
  });
  Connect(peer_.PortText().c_str());
  EXPECT_EQ(SendSocketRaw(kPoll.data(), 25), -1);
  EXPECT_EQ(SendSocketRaw(kPoll.data(), 24), 24);
  std::array<uint8_t, 16> destination{};
  uint32_t length = 0;
  ASSERT_TRUE(ReceiveSocketMessage(destination.data(), 16, &length, 0));
  EXPECT_EQ(Bytes(destination.begin(), destination.begin() + length), kOtherEvent);
  peer_.Join();
  EXPECT_EQ(peer_.Received(), kPoll);
  EXPECT_EQ(console_.Err(), "");
}

TEST_F(TcpClient, ConnectFailuresAndRepeatedCloseReportInTheirWords) {
  LoopbackPeer refusing(0, LoopbackPeer::Mode::kBoundOnly);
  ASSERT_TRUE(refusing.Ready());
  std::array<char, 1024> address{"127.0.0.1"};
  SetServerAddress(address.data(), address.size());
  EXPECT_FALSE(ConnectToServer(refusing.PortText().c_str()));
  EXPECT_FALSE(ConnectToServer("no-such-service"));
  SetServerAddress(nullptr, 1024);
  SetServerAddress(address.data(), 1025);
  SetServerAddress(nullptr, 0);
  EXPECT_FALSE(ConnectToServer(peer_.PortText().c_str()));  // the address was cleared
  EXPECT_EQ(console_.Err(),
            "ERROR: Unable to connect to server!\n"
            "ERROR: getaddrinfo failed with error: " +
                std::to_string(kUnknownServiceError) +
                "\n"
                "ERROR: memcpy_s failed! Error=16\n"
                "ERROR: memcpy_s failed! Error=22\n"
                "ERROR: getaddrinfo failed with error: " +
                std::to_string(kUnknownHostError) + "\n");

  Connect(peer_.PortText().c_str());
  CloseServerConnection();
  CloseServerConnection();
  EXPECT_EQ(console_.Out(),
            "Finished sending. Closing socket.\n"
            "Finished sending. Closing socket.\n"
            "ERROR: Socket Closed failed with error: 9\n");
}

TEST_F(TcpClient, WithoutAPortTheDefaultServiceIsUsed) {
  LoopbackPeer fixed(12360);
  if (!fixed.Ready()) GTEST_SKIP() << "port 12360 is taken on this machine";
  bool accepted = false;
  fixed.Run([&accepted](LoopbackPeer& p) { accepted = p.Accept(); });
  Connect(nullptr);
  fixed.Join();
  CloseServerConnection();
  EXPECT_TRUE(accepted);
  EXPECT_EQ(console_.Err(), "");
}

}  // namespace
}  // namespace qrx
