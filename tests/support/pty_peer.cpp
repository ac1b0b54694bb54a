// termios2 comes from the kernel headers; <termios.h> must stay out of here.
#include "support/pty_peer.h"

#include <asm/termbits.h>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <thread>

#include "support/timed_read_posix.h"

namespace qrx {

PtyPeer::PtyPeer() {
  master_ = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
  char name[128];
  if (master_ < 0 || ::grantpt(master_) != 0 || ::unlockpt(master_) != 0 ||
      ::ptsname_r(master_, name, sizeof name) != 0)
    return;
  slavePath_ = name;
  slave_ = ::open(name, O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  // Raw from the start: nothing the peer writes before the host configures
  // the line is echoed or translated.
  termios2 line{};
  ::ioctl(slave_, TCGETS2, &line);
  line.c_iflag = line.c_oflag = line.c_lflag = 0;
  line.c_cflag = (line.c_cflag & ~CSIZE) | CS8 | CREAD | CLOCAL;
  ::ioctl(slave_, TCSETS2, &line);
}

PtyPeer::~PtyPeer() {
  if (slave_ >= 0) ::close(slave_);
  if (master_ >= 0) ::close(master_);
}

std::vector<uint8_t> PtyPeer::Read(size_t count, int timeoutMs) {
  return test::TimedRead(master_, count, timeoutMs);
}

bool PtyPeer::Write(std::span<const uint8_t> bytes) {
  for (ssize_t n = 0; !bytes.empty(); bytes = bytes.subspan(static_cast<size_t>(n))) {
    if ((n = ::write(master_, bytes.data(), bytes.size())) <= 0) return false;
  }
  return true;
}

size_t PtyPeer::BytesWaitingForHost() const {
  int waiting = 0;
  return ::ioctl(slave_, FIONREAD, &waiting) == 0 && waiting > 0 ? static_cast<size_t>(waiting) : 0;
}

bool PtyPeer::WaitUntilHostHas(size_t count, int timeoutMs) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
  while (BytesWaitingForHost() < count) {
    if (std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

uint32_t PtyPeer::LineRate() const {
  termios2 line{};
  return ::ioctl(master_, TCGETS2, &line) == 0 ? line.c_ospeed : 0;
}

}  // namespace qrx
