#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/serial.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "run/run_options.h"
#include "transport/btzel_serial.h"
#include "transport/link_release.h"

// A serial driver with flags, faked at the system call the loader makes: this
// program's own ioctl stands in for the C library's, answers the two serial
// flag requests as a driver with the flags below would, and passes every
// other request to the kernel. The device itself is a real pseudo-terminal.

namespace {

struct FakeDriver {
  bool hasFlags = false;  // false: the request goes on to the pseudo-terminal
  int flags = 0;
  bool refusesSet = false;
  std::string calls;  // "get", "set:FLAGS" in hex
};
FakeDriver g_driver;

}  // namespace

extern "C" int ioctl(int fd, unsigned long request, ...) noexcept {
  va_list arguments;
  va_start(arguments, request);
  void* argument = va_arg(arguments, void*);
  va_end(arguments);
  if (request == TIOCGSERIAL) {
    g_driver.calls += "get ";
    if (g_driver.hasFlags) {
      serial_struct answer{};
      answer.flags = g_driver.flags;
      *static_cast<serial_struct*>(argument) = answer;
      return 0;
    }
  } else if (request == TIOCSSERIAL && g_driver.hasFlags) {
    const int flags = static_cast<const serial_struct*>(argument)->flags;
    char text[32];
    std::snprintf(text, sizeof text, "set:%x ", static_cast<unsigned>(flags));
    g_driver.calls += text;
    if (g_driver.refusesSet) {
      errno = EPERM;
      return -1;
    }
    g_driver.flags = flags;
    return 0;
  }
  return static_cast<int>(::syscall(SYS_ioctl, fd, request, argument));
}

namespace qrx {
namespace {

constexpr int kOtherFlag = ASYNC_SKIP_TEST;

// Low latency is asked for at the open, and the driver's flags are put back
// as they were, by the close or by the signal handler's release; a driver
// that refuses or has no flags (a pseudo-terminal) leaves the open as it was.
TEST(LowLatency, AskedAtOpenAndGivenBackAtRelease) {
  const struct {
    const char* name;
    bool hasFlags;
    int flags;
    bool refusesSet;
    bool optedOut;
    bool bySignal;
    const char* calls;
  } cases[] = {
      {"given back at close", true, kOtherFlag, false, false, false, "get set:2040 set:40 "},
      {"given back by the handler", true, kOtherFlag, false, false, true, "get set:2040 set:40 "},
      {"already low latency", true, kOtherFlag | ASYNC_LOW_LATENCY, false, false, false, "get "},
      {"refused by the driver", true, kOtherFlag, true, false, false, "get set:2040 "},
      {"a driver without flags", false, 0, false, false, false, "get "},
      {"--no-low-latency", true, kOtherFlag, false, true, false, ""},
  };
  const int master = posix_openpt(O_RDWR | O_NOCTTY);
  ASSERT_GE(master, 0);
  ASSERT_EQ(grantpt(master), 0);
  ASSERT_EQ(unlockpt(master), 0);
  SetSerialDevicePath(ptsname(master));
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    g_driver = {c.hasFlags, c.flags, c.refusesSet, ""};
    g_runOptions.noLowLatency = c.optedOut;
    {
      BTZELSERIAL port;
      ASSERT_EQ(port.OpenPort(1), 0);
      if (c.bySignal) ReleaseHeldLinksInSignalHandler();
    }
    EXPECT_EQ(g_driver.calls, c.calls);
    EXPECT_EQ(g_driver.flags, c.flags);
  }
  g_runOptions.noLowLatency = false;
  SetSerialDevicePath(nullptr);
  close(master);
}

}  // namespace
}  // namespace qrx
