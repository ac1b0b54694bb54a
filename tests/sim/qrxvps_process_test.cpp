#include <gtest/gtest.h>

#include <sstream>

#include "download_script.h"
#include "image/fw_image.h"
#include "support/child_process_posix.h"
#include "support/pty_host_posix.h"
#include "support/scratch_dir.h"
#include "support/vps_client_posix.h"

namespace qrx::test {
namespace {

constexpr int kWaitMs = 5000;
const Bytes kReadVersion = Command(0xFC05, {0xFF});
const Bytes kReady = {0x04, 0x0E, 0x03, 0x01, 0x00, 0x00};
const Bytes kFragmentComplete = {0x04, 0x0E, 0x04, 0x01, 0x09, 0xFC, 0x00};
const Bytes kResetComplete = {0x04, 0x0E, 0x04, 0x01, 0x01, 0xFC, 0x00};

// Starts qrxvps and reads the first line it prints; "" when it did not come.
std::string StartSim(ChildProcess& sim, std::vector<std::string> args) {
  EXPECT_TRUE(sim.Start(BuildProduct("sim/qrxvps"), args));
  return sim.ReadLine(kWaitMs).value_or("");
}

uint16_t PortOf(const std::string& line) {
  const std::string head = "qrxvps: listening on 127.0.0.1:";
  EXPECT_EQ(line.substr(0, head.size()), head);
  return static_cast<uint16_t>(std::stoi(line.substr(head.size())));
}

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

Bytes Image(bool corrupt) {
  fwimage::SignedImageSpec spec;
  spec.bodyBytes = 2000;
  Bytes image = fwimage::BuildSfiImage(spec);
  if (corrupt) image[fwimage::kFirstBlockSize + 10] ^= 0x40;
  return image;
}

// The whole download over TCP, with the client's writes cut three ways:
// frame and poll in one write, the frame byte by byte, frame then poll.
TEST(QrxvpsProcess, SfiDownloadOverTcp) {
  for (const bool corrupt : {false, true}) {
    SCOPED_TRACE(corrupt ? "corrupted body" : "intact body");
    ScratchDir dir;
    ChildProcess sim;
    const uint16_t port = PortOf(StartSim(
        sim, {"--port", "0", "--once", "--profile", "tlv-op", "--log", dir.Path("commands.log")}));
    VpsClient client;
    ASSERT_TRUE(client.Connect(port));
    EXPECT_EQ(client.Poll(kWaitMs), kReady);
    client.SendCommand(kReadVersion);
    EXPECT_EQ(client.Poll(kWaitMs).value_or(Bytes{0, 0, 0}).at(2), 84);
    client.SendCommand(Command(0xFC01, {1, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(client.Poll(kWaitMs), kResetComplete);
    EXPECT_EQ(client.Poll(kWaitMs), kReady);
    client.SendCommand(kReadVersion);
    EXPECT_EQ(client.Poll(kWaitMs).value_or(Bytes{0, 0, 0}).at(2), 94);

    const std::vector<Bytes> fragments = SecureSendCommands(Image(corrupt), 0);
    for (size_t i = 0; i < fragments.size(); ++i) {
      Bytes frame = VpsClient::DataFrame(fragments[i]);
      if (i % 3 == 0) {
        const Bytes poll = VpsClient::PollFrame();
        frame.insert(frame.end(), poll.begin(), poll.end());
        client.SendRaw(frame);
      } else if (i % 3 == 1) {
        for (uint8_t byte : frame) client.SendRaw(Bytes{byte});
        client.SendPoll();
      } else {
        client.SendRaw(frame);
        client.SendPoll();
      }
      ASSERT_EQ(client.ReadMessage(kWaitMs), kFragmentComplete) << i;
    }
    EXPECT_EQ(client.Poll(kWaitMs),
              (Bytes{0x04, 0xFF, 0x02, 0x06, uint8_t(corrupt ? 0x04 : 0x00)}));
    client.SendCommand(Command(0xFC01, {0, 0, 0, 1, 0, 0x80, 0, 0}));
    EXPECT_EQ(client.Poll(kWaitMs), kResetComplete);
    client.Close();
    EXPECT_EQ(sim.WaitExit(kWaitMs), 0);

    const auto log = Lines(dir.ReadText("commands.log"));
    ASSERT_EQ(log.size(), 3 + fragments.size() + 1);
    EXPECT_EQ(log[0], "05 FC 01 FF");
    EXPECT_EQ(log[1], "01 FC 08 01 00 00 00 00 00 00 00");
    EXPECT_EQ(log[3].substr(0, 15), "09 FC 81 00 01 ");
  }
}

TEST(QrxvpsProcess, CloseFaultEndsTheConnectionAndTermStopsTheServer) {
  ChildProcess once;
  const uint16_t port = PortOf(StartSim(once, {"--port", "0", "--once", "--fault", "close@2"}));
  VpsClient client;
  ASSERT_TRUE(client.Connect(port));
  EXPECT_EQ(client.Poll(kWaitMs), kReady);
  client.SendCommand(kReadVersion);
  EXPECT_TRUE(client.Poll(kWaitMs).has_value());
  client.SendCommand(kReadVersion);
  client.SendPoll();
  EXPECT_TRUE(client.ServerClosed(kWaitMs));
  EXPECT_EQ(once.WaitExit(kWaitMs), 0);

  ChildProcess server;
  PortOf(StartSim(server, {"--port", "0"}));
  server.Terminate();
  EXPECT_EQ(server.WaitExit(kWaitMs), 0);
}

// Over the pty the rate change is real: after Change Baud Rate the host's
// bytes are lost until it follows the controller to the new rate.
TEST(QrxvpsProcess, SfiDownloadOverPtyWithRateChange) {
  ScratchDir dir;
  ChildProcess sim;
  const std::string line = StartSim(sim, {"--pty", "--once", "--profile", "legacy-boot", "--log",
                                          dir.Path("log"), "--fault", "split/fc05"});
  ASSERT_EQ(line.substr(0, 18), "qrxvps: pty /dev/p");
  PtyHost host;
  ASSERT_TRUE(host.Open(line.substr(12), 115200));

  host.SendCommand(kReadVersion);  // answered in three writes
  const auto version = host.ReadEvent(kWaitMs);
  ASSERT_TRUE(version);
  EXPECT_EQ(version->size(), 16u);
  EXPECT_EQ(version->at(10), 6);  // the bootloader's firmware variant

  host.SendCommand(Command(0xFC10, {0, 0, 0x00, 0x10, 0x0E, 0x00}));  // 921600
  EXPECT_TRUE(host.ReadFor(200).empty());
  host.SendCommand(kReadVersion);  // still at 115200: lost
  EXPECT_TRUE(host.ReadFor(300).empty());
  ASSERT_TRUE(host.SetRate(921600));

  for (const Bytes& fragment : SecureSendCommands(Image(false), 0)) {
    host.SendCommand(fragment);
    ASSERT_EQ(host.ReadEvent(kWaitMs), kFragmentComplete);
  }
  EXPECT_EQ(host.ReadEvent(kWaitMs), (Bytes{0x04, 0xFF, 0x02, 0x06, 0x00}));
  host.Close();
  EXPECT_EQ(sim.WaitExit(kWaitMs), 0);
  const auto log = Lines(dir.ReadText("log"));
  ASSERT_GE(log.size(), 3u);
  EXPECT_EQ(log[1], "10 FC 06 00 00 00 10 0E 00");
  EXPECT_EQ(log[2].substr(0, 9), "09 FC 81 ");  // the lost Read Version never arrived
}

}  // namespace
}  // namespace qrx::test
