// termios2 comes from the kernel headers: <termios.h> must stay out of this
// file, its struct termios clashes with the kernel's.
#include "transport/serial_device_posix.h"

#include <asm/termbits.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "platform/clock.h"
#include "transport/link_release.h"

namespace qrx {
namespace {

static_assert(sizeof(termios2) <= sizeof(SerialLineSettings::storage));

termios2 Unpack(const SerialLineSettings& line) {
  termios2 settings{};
  std::memcpy(&settings, line.storage.data(), sizeof settings);
  return settings;
}

void Pack(const termios2& settings, SerialLineSettings& line) {
  std::memcpy(line.storage.data(), &settings, sizeof settings);
}

int64_t ElapsedMs(int64_t since) {
  return (PerformanceCounter() - since) * 1000 / PerformanceFrequency();
}

}  // namespace

int SerialOpen(const char* path) {
  // Opened without waiting for carrier, then switched to blocking I/O.
  const int fd = ::open(path, O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) return kNoSerialDevice;
  // TIOCEXCL refuses later opens by other users, but not by root; the lock
  // refuses root too, and any other program that locks the port.
  const int flags = ::fcntl(fd, F_GETFL);
  if (flags < 0 || ::fcntl(fd, F_SETFL, flags & ~O_NONBLOCK) < 0 ||
      ::flock(fd, LOCK_EX | LOCK_NB) < 0) {
    const int reason = errno;
    ::close(fd);  // exclusivity is another holder's: left as it is
    errno = reason;
    return kNoSerialDevice;
  }
  HoldSerialLink(fd);
  if (::ioctl(fd, TIOCEXCL) < 0) {
    const int reason = errno;
    SerialClose(fd);
    errno = reason;
    return kNoSerialDevice;
  }
  return fd;
}

void SerialClose(int fd) {
  // Exclusivity outlives the descriptor while anyone else keeps the device
  // open (the far end of a pseudo-terminal does): it is cleared first.
  ::ioctl(fd, TIOCNXCL);
  ::flock(fd, LOCK_UN);
  LetGoSerialLink(fd);
  ::close(fd);
}

bool SerialGetLine(int fd, SerialLineSettings& line) {
  termios2 settings{};
  if (::ioctl(fd, TCGETS2, &settings) < 0) return false;
  Pack(settings, line);
  return true;
}

bool SerialApplyLine(int fd, const SerialLineSettings& line) {
  const termios2 settings = Unpack(line);
  return ::ioctl(fd, TCSETS2, &settings) == 0;
}

void SerialMakeRaw8N1(SerialLineSettings& line, uint32_t bitsPerSecond) {
  termios2 settings = Unpack(line);
  settings.c_iflag = 0;
  settings.c_oflag = 0;
  settings.c_lflag = 0;
  settings.c_cflag = CS8 | CREAD | CLOCAL;
  // Reads are paced by poll(); read() itself never waits.
  settings.c_cc[VMIN] = 0;
  settings.c_cc[VTIME] = 0;
  Pack(settings, line);
  SerialSetLineRate(line, bitsPerSecond);
}

void SerialSetLineRate(SerialLineSettings& line, uint32_t bitsPerSecond) {
  termios2 settings = Unpack(line);
  settings.c_cflag = (settings.c_cflag & ~(CBAUD | (CBAUD << IBSHIFT))) | BOTHER;
  settings.c_ispeed = bitsPerSecond;
  settings.c_ospeed = bitsPerSecond;
  Pack(settings, line);
}

bool SerialSetRts(int fd, bool raised) {
  const int bits = TIOCM_RTS;
  return ::ioctl(fd, raised ? TIOCMBIS : TIOCMBIC, &bits) == 0;
}

bool SerialPurge(int fd) {
  return ::ioctl(fd, TCFLSH, TCIOFLUSH) == 0;
}

int64_t SerialWrite(int fd, const uint8_t* source, size_t count) {
  size_t done = 0;
  while (done < count) {
    const ssize_t n = ::write(fd, source + done, count - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return done == 0 ? -1 : static_cast<int64_t>(done);
    done += static_cast<size_t>(n);
  }
  return static_cast<int64_t>(done);
}

int64_t SerialReadAvailable(int fd, uint8_t* destination, size_t count, int32_t waitMs) {
  const int64_t start = PerformanceCounter();
  pollfd watch{fd, POLLIN, 0};
  for (;;) {
    int timeout = waitMs;
    if (waitMs > 0) timeout = static_cast<int>(std::max<int64_t>(0, waitMs - ElapsedMs(start)));
    const int ready = ::poll(&watch, 1, timeout);
    if (ready < 0 && errno == EINTR) continue;
    if (ready < 0) return -1;
    if (ready == 0) return 0;
    if ((watch.revents & POLLNVAL) != 0) {
      errno = EBADF;
      return -1;
    }
    break;
  }
  for (;;) {
    const ssize_t n = ::read(fd, destination, count);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0 && errno == EAGAIN) return 0;
    if (n == 0) {
      errno = EIO;  // the far end hung up
      return -1;
    }
    return n;
  }
}

}  // namespace qrx
