// termios2 comes from the kernel headers: <termios.h> must stay out of this
// file, its struct termios clashes with the kernel's.
#include <asm/termbits.h>
#include <fcntl.h>
#include <linux/serial.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "platform/clock.h"
#include "transport/link_release.h"
#include "transport/serial_device.h"

namespace qrx {
namespace {

static_assert(sizeof(termios2) <= sizeof(SerialLineSettings::storage));
static_assert(sizeof(serial_struct) <= sizeof(SerialDriverState::storage));

termios2 Unpack(const SerialLineSettings& line) {
  termios2 settings{};
  std::memcpy(&settings, line.storage.data(), sizeof settings);
  return settings;
}

void Pack(const termios2& settings, SerialLineSettings& line) {
  std::memcpy(line.storage.data(), &settings, sizeof settings);
}

constexpr const char* kDefaultDeviceFormat = "/dev/ttyS%lld";  // COM1 is ttyS0
constexpr const char* kPortEnvironmentFormat = "QRXBPL_COM%lld";
constexpr std::array<std::string_view, 2> kRelativePrefixes = {"./", "../"};
constexpr std::string_view kDeviceFolder = "/dev/";

// Wide enough for any port number minus one: COM-2147483648 is ttyS-2147483649.
std::string FormatWithNumber(const char* format, int64_t number) {
  char text[64];
  std::snprintf(text, sizeof text, format, static_cast<long long>(number));
  return text;
}

// Any rate, standard or not, both directions.
void SetRate(termios2& settings, uint32_t bitsPerSecond) {
  settings.c_cflag = (settings.c_cflag & ~(CBAUD | (CBAUD << IBSHIFT))) | BOTHER;
  settings.c_ispeed = bitsPerSecond;
  settings.c_ospeed = bitsPerSecond;
}

int64_t ElapsedMs(int64_t since) {
  return (PerformanceCounter() - since) * 1000 / PerformanceFrequency();
}

int Descriptor(SerialHandle port) {
  return static_cast<int>(port);
}

// Waits up to waitMs (negative: without limit) for input, then takes what is
// waiting, at most count bytes. 0 when the wait ran out; -1 on an error or
// when the far end has gone.
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

}  // namespace

// $QRXBPL_COM<n> when set, else /dev/ttyS<n-1>.
std::string SerialDevicePathForNumber(int32_t portNumber) {
  const std::string variable = FormatWithNumber(kPortEnvironmentFormat, portNumber);
  if (const char* named = std::getenv(variable.c_str()); named != nullptr && *named != '\0') {
    return named;
  }
  return FormatWithNumber(kDefaultDeviceFormat, int64_t{portNumber} - 1);
}

std::string SerialDevicePathForName(const char* portName, bool scansComNumber) {
  if (portName == nullptr || *portName == '\0') return "";
  const std::string_view name(portName);
  if (name.front() == '/') return std::string(name);
  if (scansComNumber) return "";
  const bool relative = std::any_of(kRelativePrefixes.begin(), kRelativePrefixes.end(),
                                    [name](std::string_view p) { return name.starts_with(p); });
  if (relative) return std::string(name);
  return std::string(kDeviceFolder) + std::string(name);
}

SerialHandle SerialOpen(const char* path) {
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

// The driver is asked the old way, through its serial flags: USB serial
// drivers take the flag as "no latency timer" (ftdi_sio sets its timer to
// 1 ms), the 8250 family as "hand bytes over at once". Only the one flag
// changes, which any user may do. A pseudo-terminal has no flags: nothing.
void SerialAskLowLatency(SerialHandle port) {
  const int fd = Descriptor(port);
  serial_struct flags{};
  if (::ioctl(fd, TIOCGSERIAL, &flags) < 0 || (flags.flags & ASYNC_LOW_LATENCY) != 0) return;
  SerialDriverState kept;
  std::memcpy(kept.storage.data(), &flags, sizeof flags);
  if (!KeepSerialDriverState(fd, kept)) return;
  flags.flags |= ASYNC_LOW_LATENCY;
  if (::ioctl(fd, TIOCSSERIAL, &flags) < 0) ForgetSerialDriverState(fd);
}

void RestoreSerialDriverAtOnce(intptr_t device, const SerialDriverState& state) {
  ::ioctl(static_cast<int>(device), TIOCSSERIAL, state.storage.data());
}

void SerialClose(SerialHandle port) {
  const int fd = Descriptor(port);
  if (const SerialDriverState* kept = KeptSerialDriverState(fd)) {
    RestoreSerialDriverAtOnce(fd, *kept);
  }
  // Exclusivity outlives the descriptor while anyone else keeps the device
  // open (the far end of a pseudo-terminal does): it is cleared first.
  ::ioctl(fd, TIOCNXCL);
  ::flock(fd, LOCK_UN);
  LetGoSerialLink(fd);
  ::close(fd);
}

void ReleaseSerialDeviceAtOnce(intptr_t device) {
  const int fd = static_cast<int>(device);
  termios2 settings{};
  if (::ioctl(fd, TCGETS2, &settings) == 0) {
    SetRate(settings, kSerialPowerOnRate);
    ::ioctl(fd, TCSETS2, &settings);
  }
  ::ioctl(fd, TIOCNXCL);
  ::flock(fd, LOCK_UN);
  ::close(fd);
}

bool SerialGetLine(SerialHandle port, SerialLineSettings& line) {
  termios2 settings{};
  if (::ioctl(Descriptor(port), TCGETS2, &settings) < 0) return false;
  Pack(settings, line);
  return true;
}

bool SerialApplyLine(SerialHandle port, const SerialLineSettings& line) {
  const termios2 settings = Unpack(line);
  return ::ioctl(Descriptor(port), TCSETS2, &settings) == 0;
}

bool SerialBuildLine(SerialHandle port, SerialLineSettings& line, uint32_t bitsPerSecond) {
  // The device's current settings are the base; what the loader needs is set over them.
  if (!SerialGetLine(port, line)) return false;
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
  return true;
}

void SerialSetLineRate(SerialLineSettings& line, uint32_t bitsPerSecond) {
  termios2 settings = Unpack(line);
  SetRate(settings, bitsPerSecond);
  Pack(settings, line);
}

bool SerialSetRts(SerialHandle port, bool raised) {
  const int bits = TIOCM_RTS;
  return ::ioctl(Descriptor(port), raised ? TIOCMBIS : TIOCMBIC, &bits) == 0;
}

bool SerialPurge(SerialHandle port) {
  return ::ioctl(Descriptor(port), TCFLSH, TCIOFLUSH) == 0;
}

int64_t SerialWrite(SerialHandle port, const uint8_t* source, size_t count) {
  const int fd = Descriptor(port);
  size_t done = 0;
  while (done < count) {
    const ssize_t n = ::write(fd, source + done, count - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return done == 0 ? -1 : static_cast<int64_t>(done);
    done += static_cast<size_t>(n);
  }
  return static_cast<int64_t>(done);
}

bool SerialGetTimeouts(SerialHandle port, CommTimeouts& /*words*/) {
  // The words live with the caller and are applied at each read; reading them
  // fails exactly when the COM driver's would, on a port that is not open.
  if (port == kNoSerialDevice || ::fcntl(Descriptor(port), F_GETFD) < 0) {
    errno = EBADF;
    return false;
  }
  return true;
}

bool SerialSetTimeouts(SerialHandle /*port*/, const CommTimeouts& /*words*/) {
  return true;  // nothing to store: SerialRead applies the words it is given
}

bool SerialRead(SerialHandle port, const CommTimeouts& words, uint8_t* destination, uint32_t count,
                uint32_t* bytesRead) {
  *bytesRead = 0;
  if (port == kNoSerialDevice) {
    errno = EBADF;
    return false;
  }
  const int fd = Descriptor(port);
  const CommTimeouts& t = words;
  // The COM driver's reading of the words: an all-ones interval with no totals
  // hands over what is waiting; with an all-ones multiplier too, it waits up
  // to the constant for the first byte and returns once anything came.
  // Otherwise constant + multiplier x count bounds the whole read (no bound
  // when both are 0) and the interval bounds each gap after the first byte.
  const bool handOverWaiting =
      t.readInterval == kMaxDword && t.readTotalMultiplier == 0 && t.readTotalConstant == 0;
  const bool firstByteOnly = t.readInterval == kMaxDword && t.readTotalMultiplier == kMaxDword &&
                             t.readTotalConstant != 0 && t.readTotalConstant != kMaxDword;
  int64_t totalMs = -1;
  if (handOverWaiting) {
    totalMs = 0;
  } else if (firstByteOnly) {
    totalMs = t.readTotalConstant;
  } else if (t.readTotalMultiplier != 0 || t.readTotalConstant != 0) {
    totalMs = static_cast<int64_t>(t.readTotalMultiplier) * count + t.readTotalConstant;
  }
  const bool stopOnAnyBytes = t.readInterval == kMaxDword;
  const int64_t intervalMs = stopOnAnyBytes ? 0 : t.readInterval;

  const int64_t start = PerformanceCounter();
  while (*bytesRead < count) {
    int64_t waitMs = totalMs < 0 ? -1 : std::max<int64_t>(0, totalMs - ElapsedMs(start));
    if (*bytesRead > 0 && intervalMs > 0) {
      waitMs = waitMs < 0 ? intervalMs : std::min(waitMs, intervalMs);
    }
    waitMs = std::min<int64_t>(waitMs, INT32_MAX);
    const int64_t n = SerialReadAvailable(fd, destination + *bytesRead, count - *bytesRead,
                                          static_cast<int32_t>(waitMs));
    if (n < 0) return false;
    if (n == 0) break;
    *bytesRead += static_cast<uint32_t>(n);
    if (stopOnAnyBytes) break;
  }
  return true;
}

}  // namespace qrx
