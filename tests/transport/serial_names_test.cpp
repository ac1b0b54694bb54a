#include <gtest/gtest.h>

#include "transport/btzel_serial.h"

namespace qrx {
namespace {

// A -p value names its device by itself unless a COM number is scanned from it:
// a path first, then the number, then relative paths, then names under /dev.
TEST(SerialNames, DeviceNamedByThePortValue) {
  const struct {
    const char* name;
    bool scansComNumber;
    const char* path;
  } cases[] = {
      {"/dev/pts/7", false, "/dev/pts/7"},
      {"/dev/ttyS12", true, "/dev/ttyS12"},
      {"ttyUSB0", false, "/dev/ttyUSB0"},
      {"COM3", true, ""},
      {"xyz7", true, ""},
      {"COM-2147483648", true, ""},
      {"CO", false, "/dev/CO"},
      {"pts/1", false, "/dev/pts/1"},
      {"serial/by-id/usb-x", false, "/dev/serial/by-id/usb-x"},
      {"./link", false, "./link"},
      {"../up/link", false, "../up/link"},
      {".hidden", false, "/dev/.hidden"},
      {"", false, ""},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(SerialDevicePathForName(c.name, c.scansComNumber), c.path) << c.name;
  }
  EXPECT_EQ(SerialDevicePathForPort(4000), "/dev/ttyS3999");
  EXPECT_EQ(SerialDevicePathForPort(INT32_MIN), "/dev/ttyS-2147483649");
}

}  // namespace
}  // namespace qrx
