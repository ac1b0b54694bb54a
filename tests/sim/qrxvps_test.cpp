#include <gtest/gtest.h>

#include "download_script.h"
#include "image/fw_image.h"
#include "sim_options.h"
#include "support/child_process_posix.h"
#include "support/temp_dir.h"
#include "support/timed_read_posix.h"
#include "support/vps_client_posix.h"
#include "transport/serial_device.h"

namespace qrx::test {
namespace {

constexpr int kWaitMs = 5000;
const Bytes kFragmentComplete = {0x04, 0x0E, 0x04, 0x01, 0x09, 0xFC, 0x00};
const Bytes kDownloadComplete = {0x04, 0xFF, 0x02, 0x06, 0x00};
const std::vector<Bytes> kFragments =
    SecureSendCommands(fwimage::BuildSfiImage({.bodyBytes = 2000}), 0);

TEST(Qrxvps, BadCommandLinesSayWhy) {
  for (const char* arg : {"--port=65536", "--port", "--profile=tlv", "--set=patch=256",
                          "--set=colour=1", "--secure-boot=maybe", "--fault=quiet",
                          "--fault=noise@0", "--fault=split/12345", "--log=", "--loud"}) {
    const char* argv[] = {"qrxvps", arg};
    sim::SimOptions options;
    std::string error;
    EXPECT_FALSE(sim::ParseSimOptions(2, argv, &options, &error)) << arg;
    EXPECT_FALSE(error.empty()) << arg;
  }
}

// Starts qrxvps for one session, logging to dir; what follows the expected
// start of its first line.
std::string StartSim(ChildProcess& sim, const TempDir& dir, std::vector<std::string> args,
                     const std::string& head) {
  args.insert(args.end(), {"--once", "--log", dir.Join("log")});
  EXPECT_TRUE(sim.Start(BuildProduct("sim/qrxvps"), args));
  const std::string line = sim.ReadLine(kWaitMs).value_or("");
  EXPECT_EQ(line.substr(0, head.size()), head);
  return line.substr(std::min(head.size(), line.size()));
}

TEST(Qrxvps, SfiDownloadOverTcp) {
  TempDir dir;
  ChildProcess sim;
  const std::string port = StartSim(sim, dir, {"--port", "0", "--profile", "tlv-boot"},
                                    "qrxvps: listening on 127.0.0.1:");
  VpsClient client;
  ASSERT_TRUE(client.Connect(static_cast<uint16_t>(std::stoi("0" + port))));
  EXPECT_EQ(client.Poll(kWaitMs), (Bytes{0x04, 0x0E, 0x03, 0x01, 0x00, 0x00}));
  for (const Bytes& fragment : kFragments) {
    client.SendCommand(fragment);
    ASSERT_EQ(client.Poll(kWaitMs), kFragmentComplete);
  }
  EXPECT_EQ(client.Poll(kWaitMs), kDownloadComplete);
  client.Close();
  EXPECT_EQ(sim.WaitExit(kWaitMs), 0);
}

// Over the pty the rate change is real: after it the host's bytes are lost
// until the host follows the controller to the new rate.
TEST(Qrxvps, SfiDownloadOverPtyWithRateChange) {
  TempDir dir;
  ChildProcess sim;
  const std::string path =
      StartSim(sim, dir, {"--pty", "--profile", "legacy-boot"}, "qrxvps: pty ");
  const SerialHandle port = SerialOpen(path.c_str());
  ASSERT_NE(port, kNoSerialDevice) << path;
  const int fd = static_cast<int>(port);
  SerialLineSettings line;
  ASSERT_TRUE(SerialBuildLine(port, line, 115200));
  ASSERT_TRUE(SerialApplyLine(port, line));
  const auto send = [&](Bytes h4) {
    h4.insert(h4.begin(), 0x01);
    SerialWrite(fd, h4.data(), h4.size());
  };

  send(Command(0xFC10, {0, 0, 0x00, 0x10, 0x0E, 0x00}));  // 921600
  send(Command(0xFC05, {0xFF}));                          // still at 115200: lost
  EXPECT_EQ(TimedRead(fd, 1, 300), Bytes{});
  SerialSetLineRate(line, 921600);
  ASSERT_TRUE(SerialApplyLine(port, line));
  for (const Bytes& fragment : kFragments) {
    send(fragment);
    ASSERT_EQ(TimedRead(fd, kFragmentComplete.size(), kWaitMs), kFragmentComplete);
  }
  EXPECT_EQ(TimedRead(fd, kDownloadComplete.size(), kWaitMs), kDownloadComplete);
  SerialClose(port);
  EXPECT_EQ(sim.WaitExit(kWaitMs), 0);
  // The lost Read Version never arrived.
  EXPECT_EQ(dir.Read("log").substr(0, 36), "10 FC 06 00 00 00 10 0E 00\n09 FC 81 ");
}

}  // namespace
}  // namespace qrx::test
