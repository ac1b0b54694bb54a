#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "transport/btzel_serial.h"
#include "transport/serial_device.h"

namespace qrx {
namespace {

// A -p value names its device by itself unless it is COMn or a relative path.
TEST(SerialNames, DeviceNamedByThePortValue) {
  const struct {
    const char* name;
    const char* path;
  } cases[] = {
      {"/dev/pts/7", "/dev/pts/7"},
      {"ttyUSB0", "/dev/ttyUSB0"},
      {"COM3", ""},
      {"com12", ""},
      {"COM-2147483648", ""},
      {"CO", "/dev/CO"},
      {"serial/by-id/x", ""},
      {"", ""},
  };
  for (const auto& c : cases) EXPECT_EQ(SerialDevicePathForName(c.name), c.path) << c.name;
  EXPECT_EQ(SerialDevicePathForPort(4000), "/dev/ttyS3999");
  EXPECT_EQ(SerialDevicePathForPort(INT32_MIN), "/dev/ttyS-2147483649");
}

// A closed port leaves no exclusive flag on the device while its far end stays
// open, or the next run could not open it. The flag is read by ioctl, since
// root passes it anyway; the probe opened first, before the flag was set.
TEST(SerialDevice, ClosingGivesUpExclusivity) {
  const int far = ::posix_openpt(O_RDWR | O_NOCTTY);
  ASSERT_TRUE(far >= 0 && ::grantpt(far) == 0 && ::unlockpt(far) == 0);
  const std::string path = ::ptsname(far);
  const int probe = ::open(path.c_str(), O_RDWR | O_NOCTTY);
  int exclusive[2] = {-1, -1};
  const SerialHandle port = SerialOpen(path.c_str());
  ASSERT_NE(port, kNoSerialDevice);
  ::ioctl(probe, TIOCGEXCL, &exclusive[0]);
  SerialClose(port);
  ::ioctl(probe, TIOCGEXCL, &exclusive[1]);
  EXPECT_EQ(exclusive[0], 1);
  EXPECT_EQ(exclusive[1], 0);
  ::close(probe);
  ::close(far);
}

}  // namespace
}  // namespace qrx
