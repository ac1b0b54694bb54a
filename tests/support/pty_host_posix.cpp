#include "pty_host_posix.h"

#include <asm/termbits.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>

namespace qrx::test {

PtyHost::~PtyHost() {
  Close();
}

void PtyHost::Close() {
  if (fd_ >= 0) close(fd_);
  fd_ = -1;
}

bool PtyHost::Open(const std::string& path, uint32_t rate) {
  fd_ = open(path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
  return fd_ >= 0 && SetRate(rate);
}

bool PtyHost::SetRate(uint32_t rate) {
  termios2 t{};
  if (ioctl(fd_, TCGETS2, &t) != 0) return false;
  t.c_iflag = 0;
  t.c_oflag = 0;
  t.c_lflag = 0;
  t.c_cflag = CS8 | CREAD | CLOCAL | BOTHER;
  t.c_ispeed = rate;
  t.c_ospeed = rate;
  t.c_cc[VMIN] = 1;
  t.c_cc[VTIME] = 0;
  return ioctl(fd_, TCSETS2, &t) == 0;
}

bool PtyHost::WriteRaw(std::span<const uint8_t> bytes) {
  return write(fd_, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
}

bool PtyHost::SendCommand(std::span<const uint8_t> command) {
  std::vector<uint8_t> packet(1 + command.size(), 0x01);
  std::copy(command.begin(), command.end(), packet.begin() + 1);
  return WriteRaw(packet);
}

bool PtyHost::ReadExactly(uint8_t* into, size_t count, int timeoutMs) {
  size_t got = 0;
  while (got < count) {
    pollfd entry{fd_, POLLIN, 0};
    if (poll(&entry, 1, timeoutMs) <= 0) return false;
    const ssize_t n = read(fd_, into + got, count - got);
    if (n <= 0) return false;
    got += static_cast<size_t>(n);
  }
  return true;
}

std::optional<std::vector<uint8_t>> PtyHost::ReadEvent(int timeoutMs) {
  std::vector<uint8_t> packet(3);
  if (!ReadExactly(packet.data(), 3, timeoutMs)) return std::nullopt;
  packet.resize(3 + packet[2]);
  if (packet[2] > 0 && !ReadExactly(packet.data() + 3, packet[2], timeoutMs)) return std::nullopt;
  return packet;
}

std::vector<uint8_t> PtyHost::ReadFor(int timeoutMs) {
  std::vector<uint8_t> bytes;
  uint8_t buffer[512];
  pollfd entry{fd_, POLLIN, 0};
  while (poll(&entry, 1, timeoutMs) > 0) {
    const ssize_t n = read(fd_, buffer, sizeof(buffer));
    if (n <= 0) break;
    bytes.insert(bytes.end(), buffer, buffer + n);
  }
  return bytes;
}

}  // namespace qrx::test
