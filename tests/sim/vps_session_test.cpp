#include "vps_session.h"

#include <gtest/gtest.h>

#include "download_script.h"
#include "model/controller.h"
#include "support/vps_client_posix.h"

namespace qrx::sim {
namespace {

using test::Bytes;
using test::VpsClient;

Bytes Concat(std::initializer_list<Bytes> parts) {
  Bytes all;
  for (const Bytes& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

// Feeds the client stream in the given pieces; returns every message sent.
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

Bytes Message(const Bytes& payload) {
  Bytes message = {static_cast<uint8_t>(payload.size()), 0, 0, 0};
  message.insert(message.end(), payload.begin(), payload.end());
  return message;
}

const Bytes kManf = test::Command(0xFC11, {1, 0});
const Bytes kManfComplete = {0x04, 0x0E, 0x04, 0x01, 0x11, 0xFC, 0x00};

TEST(VpsSession, FramesAreReadWhateverTheCuts) {
  const Bytes stream = Concat({VpsClient::PollFrame(), VpsClient::DataFrame(kManf),
                               VpsClient::PollFrame(), VpsClient::DataFrame(kManf)});
  const std::vector<Bytes> expected = {Message(test::Bytes{0x04, 0x0E, 0x03, 0x01, 0x00, 0x00}),
                                       Message(kManfComplete)};
  for (size_t a = 0; a <= stream.size(); a += 3) {
    for (size_t b = a; b <= stream.size(); b += 7) {
      Controller controller(ConfigForProfile(Profile::kTlvBoot));
      controller.PowerOn();
      VpsSession session(controller);
      const auto messages = Serve(session, {Bytes(stream.begin(), stream.begin() + a),
                                            Bytes(stream.begin() + a, stream.begin() + b),
                                            Bytes(stream.begin() + b, stream.end())});
      EXPECT_EQ(messages, expected) << a << " " << b;
      EXPECT_EQ(controller.CommandCount(), 2u);
      // The second answer waits in the controller for a poll.
      EXPECT_TRUE(controller.HasOutput());
    }
  }
}

TEST(VpsSession, PollIsHeldUntilSomethingIsDue) {
  Controller controller(ConfigForProfile(Profile::kTlvBoot));
  VpsSession session(controller);
  EXPECT_TRUE(Serve(session, {VpsClient::PollFrame()}).empty());
  EXPECT_EQ(session.WaitingPolls(), 1u);
  // A rate command has no answer: the poll keeps waiting.
  EXPECT_TRUE(Serve(session, {VpsClient::DataFrame(test::Command(0xFC06, {5}))}).empty());
  EXPECT_EQ(Serve(session, {VpsClient::DataFrame(kManf)}),
            std::vector<Bytes>{Message(kManfComplete)});
  EXPECT_EQ(session.WaitingPolls(), 0u);
}

TEST(VpsSession, DeliveryFaultsShapeTheMessages) {
  struct Case {
    const char* fault;
    std::vector<Bytes> expected;
  };
  const Bytes debug = {0x04, 0xFF, 0x02, 0x2A, 0x00};
  const Case cases[] = {
      {"split", {Message({0x04, 0x0E}), Message({0x04, 0x01, 0x11}), Message({0xFC, 0x00})}},
      {"join", {Message(Concat({kManfComplete, debug}))}},
      {"prefix-only", {Message({}), Message(kManfComplete)}},
      {"noise", {Message(Concat({{0xA5}, kManfComplete}))}},
      {"close", {{0xDE, 0xAD}}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.fault);
    std::string error;
    FaultPlan plan;
    plan.Add(*ParseFaultSpec(c.fault, &error));
    Controller controller(ConfigForProfile(Profile::kTlvBoot), plan);
    VpsSession session(controller);
    std::vector<Bytes> pieces = {VpsClient::DataFrame(kManf)};
    for (size_t i = 0; i < c.expected.size(); ++i) pieces.push_back(VpsClient::PollFrame());
    EXPECT_EQ(Serve(session, pieces), c.expected);
    EXPECT_FALSE(controller.HasOutput());
  }
}

TEST(VpsSession, UnreadableFramesEndTheConnection) {
  const Bytes cases[] = {
      {0, 0, 0, 0, 12, 0, 0, 0},    // poll of the wrong length
      {1, 0, 0, 0, 2, 0, 0, 0},     // data frame without its reserved word
      {1, 0, 0, 0, 0, 0x20, 0, 0},  // data frame longer than any command
      {7, 0, 0, 0, 4, 0, 0, 0},     // unknown type
  };
  for (const Bytes& frame : cases) {
    Controller controller(ConfigForProfile(Profile::kTlvBoot));
    VpsSession session(controller);
    std::string error;
    EXPECT_FALSE(session.OnClientBytes(frame, &error));
    EXPECT_FALSE(error.empty());
  }
}

}  // namespace
}  // namespace qrx::sim
