#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "transport/btzel_serial.h"
#include "transport/serial_device.h"
#include "transport/serial_port_list.h"

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

// Windows names a USB adapter by its hardware id and counts COM ports by number.
TEST(SerialPortList, UsbIdsFromTheHardwareIdAndPortsInNumberOrder) {
  const std::pair<const char*, const char*> kIds[] = {
      {"USB\\VID_0403&PID_6001&REV_0600", "0403:6001"},
      {"usb\\vid_10c4&pid_EA60", "10c4:ea60"},
      {"FTDIBUS\\COMPORT&VID_0403&PID_6001", "0403:6001"},
      {"USB\\VID_04G3&PID_6001", ":"},
      {"USB\\VID_0403", ":"},
      {"ACPI\\PNP0501", ":"}};
  for (const auto& [hardwareId, ids] : kIds) {
    const UsbIds usb = UsbIdsFromHardwareId(hardwareId);
    EXPECT_EQ(usb.vendorId + ":" + usb.productId, ids) << hardwareId;
  }
  std::vector<SerialPortInfo> ports;
  for (const char* name : {"COM10", "COM2", "COM1", "COM100", "COM3"}) {
    ports.emplace_back().device = name;
  }
  SortByPortNumber(ports);
  std::string order;
  for (const SerialPortInfo& port : ports) order += port.device + " ";
  EXPECT_EQ(order, "COM1 COM2 COM3 COM10 COM100 ");
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
