#include "pty_posix.h"

// termios2 and the termios of <termios.h> cannot share a translation unit.
#include <asm/termbits.h>
#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace qrx::sim {

namespace {

constexpr uint32_t kInitialRate = 115200;

}  // namespace

// Raw 8N1, receiver on, modem lines ignored, like the loader's own settings.
bool SetRawTerminal(int fd, uint32_t rate) {
  termios2 t{};
  if (ioctl(fd, TCGETS2, &t) != 0) return false;
  t.c_iflag = 0;
  t.c_oflag = 0;
  t.c_lflag = 0;
  t.c_cflag = CS8 | CREAD | CLOCAL | BOTHER;
  t.c_ospeed = rate;
  t.c_ispeed = rate;
  t.c_cc[VMIN] = 1;
  t.c_cc[VTIME] = 0;
  return ioctl(fd, TCSETS2, &t) == 0;
}

PtyLine::~PtyLine() {
  Close();
}

bool PtyLine::Open(std::string* error) {
  master_ = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
  if (master_ < 0 || grantpt(master_) != 0 || unlockpt(master_) != 0) {
    *error = std::string("pseudo-terminal: ") + std::strerror(errno);
    Close();
    return false;
  }
  char name[128];
  if (ptsname_r(master_, name, sizeof(name)) != 0) {
    *error = std::string("ptsname: ") + std::strerror(errno);
    Close();
    return false;
  }
  slavePath_ = name;
  // Configure through a short-lived slave descriptor; closing it leaves the
  // line in the "no host" state until the host opens it.
  const int slave = open(name, O_RDWR | O_NOCTTY | O_CLOEXEC);
  if (slave < 0) {
    *error = std::string("open ") + name + ": " + std::strerror(errno);
    Close();
    return false;
  }
  SetRawTerminal(slave, kInitialRate);
  close(slave);
  return true;
}

PtyLine::State PtyLine::Wait(int timeoutMs) const {
  pollfd entry{master_, POLLIN, 0};
  const int result = poll(&entry, 1, timeoutMs);
  if (result == 0) return State::kIdle;
  if (result < 0) return errno == EINTR ? State::kIdle : State::kError;
  if (entry.revents & POLLIN) return State::kData;
  if (entry.revents & POLLHUP) return State::kHostAbsent;
  return State::kError;
}

PtyLine::State PtyLine::WaitNs(int64_t timeoutNs, bool wantData) const {
  // A wait of nothing is a turn of a spin on the clock: whatever else is
  // ready to run (the loader, another line's simulator) goes first.
  if (timeoutNs == 0) sched_yield();
  pollfd entry{master_, static_cast<short>(wantData ? POLLIN : 0), 0};
  constexpr int64_t kNsPerSecond = 1'000'000'000;
  const timespec timeout{static_cast<time_t>(timeoutNs / kNsPerSecond),
                         static_cast<long>(timeoutNs % kNsPerSecond)};
  const int result = ppoll(&entry, 1, &timeout, nullptr);
  if (result == 0) return State::kIdle;
  if (result < 0) return errno == EINTR ? State::kIdle : State::kError;
  if (entry.revents & POLLIN) return State::kData;
  if (entry.revents & POLLHUP) return State::kHostAbsent;
  return State::kError;
}

void PtyLine::UsePreciseTimers() {
  // The default slack lets a timed wait end up to 50 us late: as long as a
  // fragment's whole answer on a 3 Mbit/s line.
  prctl(PR_SET_TIMERSLACK, 1UL, 0UL, 0UL, 0UL);
}

long PtyLine::Read(std::span<uint8_t> buffer) const {
  ssize_t count;
  do {
    count = read(master_, buffer.data(), buffer.size());
  } while (count < 0 && errno == EINTR);
  return static_cast<long>(count);
}

bool PtyLine::Write(std::span<const uint8_t> bytes) const {
  size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t count = write(master_, bytes.data() + done, bytes.size() - done);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    done += static_cast<size_t>(count);
  }
  return true;
}

uint32_t PtyLine::HostRate() const {
  // On the master, the terminal ioctls act on the slave's settings.
  termios2 t{};
  if (ioctl(master_, TCGETS2, &t) != 0) return 0;
  return t.c_ospeed;
}

void PtyLine::Close() {
  if (master_ >= 0) close(master_);
  master_ = -1;
}

}  // namespace qrx::sim
