#include "vps_session.h"

#include <gtest/gtest.h>

#include "download_script.h"
#include "model/controller.h"
#include "support/vps_client_posix.h"

namespace qrx::sim {
namespace {

using test::Bytes;
using test::VpsClient;

// Feeds the client stream in the given pieces; returns every message sent.
std::vector<Bytes> Serve(VpsSession& session, const std::vector<Bytes>& pieces) {
  std::vector<Bytes> messages;
  for (const Bytes& piece : pieces) {
    std::string error;
    EXPECT_TRUE(session.OnClientBytes(piece, &error)) << error;
    while (auto message = session.NextMessage()) messages.push_back(message->bytes);
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

const Bytes kPoll = VpsClient::PollFrame();
const Bytes kManf = VpsClient::DataFrame(test::Command(0xFC11, {1, 0}));
const Bytes kManfComplete = {0x04, 0x0E, 0x04, 0x01, 0x11, 0xFC, 0x00};

TEST(VpsSession, FramesAreReadWhateverTheCutsAndPollsWaitForAnswers) {
  Bytes stream = kPoll;
  for (const Bytes& frame : {kManf, kPoll, kManf})
    stream.insert(stream.end(), frame.begin(), frame.end());
  const std::vector<Bytes> expected = {Message({{0x04, 0x0E, 0x03, 0x01, 0x00, 0x00}}),
                                       Message({kManfComplete})};
  for (size_t cut = 0; cut <= stream.size(); ++cut) {
    Controller controller(ConfigForProfile(Profile::kTlvBoot));
    controller.PowerOn();
    VpsSession session(controller);
    EXPECT_EQ(Serve(session, {Bytes(stream.begin(), stream.begin() + cut),
                              Bytes(stream.begin() + cut, stream.end())}),
              expected)
        << cut;
    EXPECT_TRUE(controller.HasOutput());  // the second answer waits for a poll
  }
  // A poll is held while nothing is due; a rate command has no answer; a
  // joined packet shares its message with the one after it.
  Controller controller = test::WithFault("join/fc11");
  VpsSession session(controller);
  EXPECT_TRUE(Serve(session, {kPoll, VpsClient::DataFrame(test::Command(0xFC06, {5}))}).empty());
  EXPECT_EQ(Serve(session, {kManf}),
            std::vector<Bytes>{Message({kManfComplete, {0x04, 0xFF, 0x02, 0x2A, 0x00}})});
}

}  // namespace
}  // namespace qrx::sim
