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
const Bytes kAcl273 = {0x02, 0x01, 0x20, 0x0C, 0x01};

Bytes Cat(std::initializer_list<Bytes> parts) {
  Bytes all;
  for (const Bytes& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

// A server message: a prefix the client must skip unread, then H4 bytes.
Bytes Message(const Bytes& h4) {
  return Cat({{0xDE, 0xAD, 0xBE, 0xEF}, h4});
}

void Connect(const LoopbackPeer& peer) {
  std::array<char, 1024> address{"127.0.0.1"};
  SetServerAddress(address.data(), address.size());
  ASSERT_TRUE(ConnectToServer(peer.PortText().c_str()));
}

struct ReceiveCase {
  const char* name;
  std::vector<Bytes> messages;  // one a poll; an empty one: the peer hangs up instead
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
    {"type byte alone first", {Message({0x04}), Message({0x0E, 0x04, 0x01, 0x05, 0xFC, 0x00})}, 259,
     true, 7, kEvent, ""},
    {"two events, first kept", {Message(Cat({kEvent, kOtherEvent}))}, 259, true, 7, kEvent, ""},
    {"prefix only", {Message({})}, 259, false, 0, Bytes(259, 0xCC), kUnreadable},
    // What came is copied in as it comes.
    {"acl of 273", {Message(kAcl273)}, 259, false, 5, Cat({kAcl273, Bytes(254, 0xCC)}),
     "Message size is too long, size = 273\n"},
    {"message beyond capacity", {Message(kEvent)}, 5, false, 7, Bytes(5, 0), kCopyFailed},
    {"peer hangs up mid-packet", {Message({0x04, 0x0E}), {}}, 259, false, 0xFFFFFFFC, Bytes(259, 0),
     kCopyFailed},
};
// clang-format on

TEST(TcpClient, ReassemblesOnePacketPerCallFromPolledMessages) {
  for (const ReceiveCase& c : kReceiveCases) {
    SCOPED_TRACE(c.name);
    LoopbackPeer peer;
    peer.Run([&c](LoopbackPeer& p) {
      if (!p.Accept()) return;
      for (const Bytes& message : c.messages) {
        if (p.ReadExact(kPoll.size()).size() != kPoll.size() || message.empty()) return;
        p.Send(message);
      }
    });
    ConsoleCapture console;
    Connect(peer);
    Bytes destination(c.capacity, 0xCC);
    uint32_t length = 0xFFFF;
    EXPECT_EQ(ReadSocketEvent(destination.data(), c.capacity, &length, 3000), c.delivered);
    EXPECT_EQ(length, c.length);
    if (c.delivered) destination.resize(length);
    EXPECT_EQ(destination, c.packet);
    EXPECT_EQ(console.Err(), c.console);
    peer.Join();
    Bytes polls;
    for (size_t i = 0; i < c.messages.size(); ++i) polls = Cat({polls, kPoll});
    EXPECT_EQ(peer.Received(), polls);
    CloseServerConnection();
  }
}

TEST(TcpClient, FramesCommandsUpToTheBufferLimit) {
  LoopbackPeer peer;
  const Bytes readVersion = {0x05, 0xFC, 0x00, 0x77};  // the last byte is the caller's spare
  const Bytes longest = Cat({{0x09, 0xFC, 0xFF}, Bytes(495, 0x33), {0x77}});
  peer.Run([&](LoopbackPeer& p) {
    if (p.Accept()) p.ReadExact(16 + 511);
  });
  ConsoleCapture console;
  Connect(peer);
  EXPECT_EQ(SendSocketCmd(readVersion.data(), 4), 16);
  EXPECT_EQ(SendSocketCmd(longest.data(), 499), 511);
  EXPECT_EQ(SendSocketCmd(Bytes(500, 0).data(), 500), -1);
  EXPECT_EQ(SendSocketCmd(nullptr, 4), -1);
  peer.Join();
  // Each frame: a 12-byte header (message type, then a length word), then the H4 bytes.
  const Bytes frames = Cat({{0x01, 0, 0, 0, 0x08, 0, 0, 0, 0, 0, 0, 0, 0x01, 0x05, 0xFC, 0x00},
                            {0x01, 0, 0, 0, 0xF7, 0x01, 0, 0, 0, 0, 0, 0, 0x01},
                            Bytes(longest.begin(), longest.end() - 1)});
  EXPECT_EQ(peer.Received(), frames);
  EXPECT_EQ(console.Err(),
            "Send Packet Size = 16 \n"
            "Send Packet Size = 511 \n"
            "ERROR: Send Length is greater than  DEFAULT_BUFLEN\n"
            "ERROR: SendSocketCmd buffer is empty!\n");
}

}  // namespace
}  // namespace qrx
