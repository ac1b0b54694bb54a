#include <gtest/gtest.h>

#include "download_script.h"
#include "image/fw_image.h"
#include "support/child_process_posix.h"
#include "support/temp_dir.h"
#include "support/vps_client_posix.h"
#include "transport/serial_device_posix.h"

namespace qrx::test {
namespace {

constexpr int kWaitMs = 5000;
const Bytes kReadVersion = Command(0xFC05, {0xFF});
const Bytes kFragmentComplete = {0x04, 0x0E, 0x04, 0x01, 0x09, 0xFC, 0x00};
const std::vector<Bytes> kFragments =
    SecureSendCommands(fwimage::BuildSfiImage({.bodyBytes = 2000}), 0);

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

TEST(QrxvpsProcess, SfiDownloadOverTcp) {
  for (const bool corrupt : {false, true}) {
    SCOPED_TRACE(corrupt ? "corrupted body" : "intact body");
    TempDir dir;
    ChildProcess sim;
    const std::string port = StartSim(sim, dir, {"--port", "0", "--profile", "tlv-boot"},
                                      "qrxvps: listening on 127.0.0.1:");
    VpsClient client;
    ASSERT_TRUE(client.Connect(static_cast<uint16_t>(std::stoi("0" + port))));
    EXPECT_EQ(client.Poll(kWaitMs), (Bytes{0x04, 0x0E, 0x03, 0x01, 0x00, 0x00}));
    std::vector<Bytes> fragments = kFragments;
    if (corrupt) fragments[5][14] ^= 0x40;  // a body parameter byte
    for (const Bytes& fragment : fragments) {
      client.SendCommand(fragment);
      ASSERT_EQ(client.Poll(kWaitMs), kFragmentComplete);
    }
    EXPECT_EQ(client.Poll(kWaitMs), (Bytes{0x04, 0xFF, 0x02, 0x06, uint8_t(corrupt ? 4 : 0)}));
    client.Close();
    EXPECT_EQ(sim.WaitExit(kWaitMs), 0);
  }
}

// Over the pty the rate change is real: after it the host's bytes are lost
// until the host follows the controller to the new rate.
TEST(QrxvpsProcess, SfiDownloadOverPtyWithRateChange) {
  TempDir dir;
  ChildProcess sim;
  const std::string path = StartSim(
      sim, dir, {"--pty", "--profile", "legacy-boot", "--fault", "split/fc05"}, "qrxvps: pty ");
  const int fd = SerialOpen(path.c_str());
  ASSERT_NE(fd, kNoSerialDevice) << path;
  SerialLineSettings line;
  const auto setRate = [&](uint32_t rate) {
    SerialMakeRaw8N1(line, rate);
    return SerialApplyLine(fd, line);
  };
  ASSERT_TRUE(SerialGetLine(fd, line) && setRate(115200));
  const auto send = [&](const Bytes& command) {
    Bytes h4 = {0x01};
    h4.insert(h4.end(), command.begin(), command.end());
    return SerialWrite(fd, h4.data(), h4.size()) == static_cast<int64_t>(h4.size());
  };
  const auto readEvent = [&](int waitMs) {  // one H4 event, or the bytes that came
    Bytes event(3);
    size_t got = 0;
    while (got < event.size()) {
      const int64_t n = SerialReadAvailable(fd, event.data() + got, event.size() - got, waitMs);
      if (n <= 0) return Bytes(event.begin(), event.begin() + got);
      if ((got += n) == 3) event.resize(3 + event[2]);
    }
    return event;
  };

  ASSERT_TRUE(send(kReadVersion));  // answered in three writes
  EXPECT_EQ(readEvent(kWaitMs).size(), 16u);
  send(Command(0xFC10, {0, 0, 0x00, 0x10, 0x0E, 0x00}));  // 921600
  send(kReadVersion);                                     // still at 115200: lost
  EXPECT_EQ(readEvent(300), Bytes{});
  ASSERT_TRUE(setRate(921600));
  for (const Bytes& fragment : kFragments) {
    send(fragment);
    ASSERT_EQ(readEvent(kWaitMs), kFragmentComplete);
  }
  EXPECT_EQ(readEvent(kWaitMs), (Bytes{0x04, 0xFF, 0x02, 0x06, 0x00}));
  SerialClose(fd);
  EXPECT_EQ(sim.WaitExit(kWaitMs), 0);
  const std::string log = dir.Read("log");
  EXPECT_EQ(log.substr(0, 39), "05 FC 01 FF\n10 FC 06 00 00 00 10 0E 00\n");
  EXPECT_EQ(log.substr(39, 9), "09 FC 81 ");  // the lost Read Version never arrived
}

}  // namespace
}  // namespace qrx::test
