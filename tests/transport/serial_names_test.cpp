#include <gtest/gtest.h>

#include "transport/btzel_serial.h"

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

}  // namespace
}  // namespace qrx
