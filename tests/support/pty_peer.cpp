// termios2 comes from the kernel headers; <termios.h> must stay out of here.
#include "support/pty_peer.h"

#include <asm/termbits.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <thread>

namespace qrx {
namespace {

using Clock = std::chrono::steady_clock;

int RemainingMs(Clock::time_point deadline) {
  const auto left =
      std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
  return left > 0 ? static_cast<int>(left) : 0;
}

}  // namespace

PtyPeer::PtyPeer() {
  master_ = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
  if (master_ < 0) return;
  char name[128];
  if (::grantpt(master_) != 0 || ::unlockpt(master_) != 0 ||
      ::ptsname_r(master_, name, sizeof name) != 0) {
    ::close(master_);
    master_ = -1;
    return;
  }
  slavePath_ = name;
  slave_ = ::open(name, O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  if (slave_ < 0) return;
  // Raw from the start: nothing the peer writes before the host configures
  // the line is echoed or translated.
  termios2 line{};
  ::ioctl(slave_, TCGETS2, &line);
  line.c_iflag = 0;
  line.c_oflag = 0;
  line.c_lflag = 0;
  line.c_cflag = (line.c_cflag & ~CSIZE) | CS8 | CREAD | CLOCAL;
  ::ioctl(slave_, TCSETS2, &line);
}

PtyPeer::~PtyPeer() {
  if (slave_ >= 0) ::close(slave_);
  if (master_ >= 0) ::close(master_);
}

std::vector<uint8_t> PtyPeer::Read(size_t count, int timeoutMs) {
  std::vector<uint8_t> bytes;
  const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
  while (bytes.size() < count) {
    pollfd watch{master_, POLLIN, 0};
    const int ready = ::poll(&watch, 1, RemainingMs(deadline));
    if (ready < 0 && errno == EINTR) continue;
    if (ready <= 0 || (watch.revents & POLLIN) == 0) break;
    uint8_t chunk[512];
    const size_t want = std::min(sizeof chunk, count - bytes.size());
    const ssize_t n = ::read(master_, chunk, want);
    if (n <= 0) break;
    bytes.insert(bytes.end(), chunk, chunk + n);
  }
  return bytes;
}

bool PtyPeer::Write(std::span<const uint8_t> bytes) {
  size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t n = ::write(master_, bytes.data() + done, bytes.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    done += static_cast<size_t>(n);
  }
  return true;
}

size_t PtyPeer::BytesWaitingForHost() const {
  int waiting = 0;
  if (::ioctl(slave_, FIONREAD, &waiting) != 0 || waiting < 0) return 0;
  return static_cast<size_t>(waiting);
}

bool PtyPeer::WaitUntilHostHas(size_t count, int timeoutMs) {
  const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
  while (BytesWaitingForHost() < count) {
    if (Clock::now() >= deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

uint32_t PtyPeer::LineRate() const {
  termios2 line{};
  if (::ioctl(master_, TCGETS2, &line) != 0) return 0;
  return line.c_ospeed;
}

}  // namespace qrx
