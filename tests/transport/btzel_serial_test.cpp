#include "transport/btzel_serial.h"

#include <gtest/gtest.h>

#include <numeric>
#include <optional>
#include <vector>

#include "platform/console.h"
#include "support/pty_peer.h"
#include "support/scoped_env.h"

namespace qrx {
namespace {

using Bytes = std::vector<uint8_t>;

TEST(SerialOpen, MissingDevicePrintsThePlatformTextAndFails) {
  ScopedEnv unset("QRXBPL_COM4000", std::nullopt);
  for (const char* path : {"/nonexistent-qrx/ttyQ0", static_cast<const char*>(nullptr)}) {
    SetSerialDevicePath(path);
    BTZELSERIAL port;
    ConsoleCapture capture;
    EXPECT_EQ(port.OpenPort(4000), -1);
    EXPECT_EQ(capture.Err(), "No such file or directory\n");
    EXPECT_EQ(capture.Out(), "");
    EXPECT_EQ(port.PortPath(), path ? path : "/dev/ttyS3999");
  }
  SetSerialDevicePath(nullptr);
}

TEST(SerialOpen, ComNumberNamedByEnvironmentOpensAt115200AndFramesCommandsUpTo2048Bytes) {
  PtyPeer peer;
  ASSERT_TRUE(peer.Ready());
  ScopedEnv com7("QRXBPL_COM7", peer.SlavePath());
  BTZELSERIAL port;
  ConsoleCapture capture;
  ASSERT_EQ(port.OpenPort(7), 0);
  EXPECT_EQ(port.PortPath(), peer.SlavePath());
  EXPECT_EQ(peer.LineRate(), 115200u);
  const struct {
    uint32_t length;
    int32_t result;
  } cases[] = {{3, 4}, {2048, 2049}, {2049, 0}};
  constexpr uint8_t kMarker = 0xA5;
  for (const auto& c : cases) {
    Bytes command(c.length);
    std::iota(command.begin(), command.end(), uint8_t{0x10});
    EXPECT_EQ(port.WriteHciCommand(command.data(), c.length), c.result);
    // A raw marker behind it shows exactly what, if anything, went out.
    ASSERT_EQ(port.WriteRaw(&kMarker, 1), 1);
    Bytes expected;
    if (c.result != 0) {
      expected.push_back(0x01);
      expected.insert(expected.end(), command.begin(), command.end());
    }
    expected.push_back(kMarker);
    EXPECT_EQ(peer.Read(expected.size()), expected) << c.length;
  }
  // RTS cannot be driven on a pseudo-terminal; nobody reports that.
  EXPECT_EQ(capture.Err() + capture.Out(), "");
}

}  // namespace
}  // namespace qrx
