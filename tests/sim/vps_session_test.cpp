#include "vps_session.h"

#include <gtest/gtest.h>

#include "download_script.h"
#include "model/controller.h"
#include "support/vps_client_posix.h"

namespace qrx::sim {
namespace {

using test::Bytes;
using test::VpsClient;

// Feeds the client stream in the given pieces; returns every message sent
// (DE AD stands for a close).
std::vector<Bytes> Serve(VpsSession& session, const std::vector<Bytes>& pieces) {
  std::vector<Bytes> messages;
  for (const Bytes& piece : pieces) {
    std::string error;
    EXPECT_TRUE(session.OnClientBytes(piece, &error)) << error;
    while (auto message = session.NextMessage()) {
      messages.push_back(message->close ? Bytes{0xDE, 0xAD} : message->bytes);
    }
  }
  return messages;
}

// A server message: the byte count, then the bytes.
Bytes Message(std::initializer_list<Bytes> parts) {
  Bytes message(4, 0);
  for (const Bytes& part : parts) message.insert(message.end(), part.begin(), part.end());
  message[0] = static_cast<uint8_t>(message.size() - 4);
  return message;
}

const Bytes kManf = VpsClient::DataFrame(test::Command(0xFC11, {1, 0}));
const Bytes kManfComplete = {0x04, 0x0E, 0x04, 0x01, 0x11, 0xFC, 0x00};

TEST(VpsSession, FramesAreReadWhateverTheCuts) {
  const Bytes poll = VpsClient::PollFrame();
  Bytes stream = poll;
  for (const Bytes& frame : {kManf, poll, kManf})
    stream.insert(stream.end(), frame.begin(), frame.end());
  const std::vector<Bytes> expected = {Message({{0x04, 0x0E, 0x03, 0x01, 0x00, 0x00}}),
                                       Message({kManfComplete})};
  for (size_t a = 0; a <= stream.size(); a += 3) {
    for (size_t b = a; b <= stream.size(); b += 7) {
      Controller controller(ConfigForProfile(Profile::kTlvBoot));
      controller.PowerOn();
      VpsSession session(controller);
      const auto messages = Serve(session, {Bytes(stream.begin(), stream.begin() + a),
                                            Bytes(stream.begin() + a, stream.begin() + b),
                                            Bytes(stream.begin() + b, stream.end())});
      EXPECT_EQ(messages, expected) << a << " " << b;
      EXPECT_TRUE(controller.HasOutput());  // the second answer waits for a poll
    }
  }
  // A poll is held while nothing is due; a rate command has no answer.
  Controller controller(ConfigForProfile(Profile::kTlvBoot));
  VpsSession session(controller);
  EXPECT_TRUE(Serve(session, {poll, VpsClient::DataFrame(test::Command(0xFC06, {5}))}).empty());
  EXPECT_EQ(Serve(session, {kManf}), std::vector<Bytes>{Message({kManfComplete})});
}

TEST(VpsSession, DeliveryFaultsShapeTheMessages) {
  const Bytes debug = {0x04, 0xFF, 0x02, 0x2A, 0x00};
  const std::pair<const char*, std::vector<Bytes>> cases[] = {
      {"split", {Message({{0x04, 0x0E}}), Message({{0x04, 0x01, 0x11}}), Message({{0xFC, 0x00}})}},
      {"join", {Message({kManfComplete, debug})}},
      {"prefix-only", {Message({}), Message({kManfComplete})}},
      {"noise", {Message({{kNoiseByte}, kManfComplete})}},
      {"close", {{0xDE, 0xAD}}},
  };
  for (const auto& [fault, expected] : cases) {
    SCOPED_TRACE(fault);
    Controller controller = test::WithFault(fault);
    VpsSession session(controller);
    std::vector<Bytes> pieces(expected.size() + 1, VpsClient::PollFrame());
    pieces[0] = kManf;
    EXPECT_EQ(Serve(session, pieces), expected);
    EXPECT_FALSE(controller.HasOutput());
  }
}

}  // namespace
}  // namespace qrx::sim
