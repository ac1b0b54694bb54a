#include "transport/tcp_client.h"

#include <gtest/gtest.h>

#include <array>
#include <string>
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

const char* const kUnreadable = "ERROR: unable to read data from device\n";
const char* const kCopyFailed = "ERROR: memcpy_s failed! Error=22\n";

// clang-format off
const std::vector<ReceiveCase> kReceiveCases = {
    {"whole event", {Message(kEvent)}, false, 259, true, 7, kEvent, ""},
    {"type byte alone first", {Message({0x04}), Message({0x0E, 0x04, 0x01, 0x05, 0xFC, 0x00})},
     false, 259, true, 7, kEvent, ""},
    {"two events, first kept", {Message(Cat({kEvent, kOtherEvent}))}, false, 259, true, 7, kEvent, ""},
    {"prefix only", {Message({})}, false, 259, false, 0, {}, kUnreadable},
    {"acl of 273", {Message({0x02, 0x01, 0x20, 0x0C, 0x01})}, false, 259, false, 5, {},
     "Message size is too long, size = 273\n"},
    {"message beyond capacity", {Message(kEvent)}, false, 5, false, 7, Bytes(5, 0), kCopyFailed},
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

}  // namespace
}  // namespace qrx
