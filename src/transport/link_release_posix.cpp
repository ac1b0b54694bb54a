// termios2 comes from the kernel headers: <termios.h> must stay out of this file.
#include <asm/termbits.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <atomic>

#include "transport/link_release.h"

namespace qrx {

namespace {

// A run holds one link; a few slots spare room for tests that open more.
constexpr size_t kSlots = 4;
constexpr int kEmpty = -1;

static_assert(std::atomic<int>::is_always_lock_free);
using Slots = std::array<std::atomic<int>, kSlots>;
Slots g_serialLinks = {kEmpty, kEmpty, kEmpty, kEmpty};
Slots g_socketLinks = {kEmpty, kEmpty, kEmpty, kEmpty};

void Hold(Slots& slots, int descriptor) {
  for (std::atomic<int>& slot : slots) {
    int empty = kEmpty;
    if (slot.compare_exchange_strong(empty, descriptor)) return;
  }
}

void LetGo(Slots& slots, int descriptor) {
  for (std::atomic<int>& slot : slots) {
    int held = descriptor;
    if (slot.compare_exchange_strong(held, kEmpty)) return;
  }
}

// Whoever empties a slot releases its descriptor: the handler, or the code
// that let it go. So no descriptor is closed twice.
void ReleaseSerialLine(int fd) {
  termios2 settings{};
  if (::ioctl(fd, TCGETS2, &settings) == 0) {
    settings.c_cflag = (settings.c_cflag & ~(CBAUD | (CBAUD << IBSHIFT))) | BOTHER;
    settings.c_ispeed = kSerialPowerOnRate;
    settings.c_ospeed = kSerialPowerOnRate;
    ::ioctl(fd, TCSETS2, &settings);
  }
  ::ioctl(fd, TIOCNXCL);
  ::flock(fd, LOCK_UN);
  ::close(fd);
}

}  // namespace

void HoldSerialLink(int device) {
  Hold(g_serialLinks, device);
}

void LetGoSerialLink(int device) {
  LetGo(g_serialLinks, device);
}

void HoldSocketLink(int socket) {
  Hold(g_socketLinks, socket);
}

void LetGoSocketLink(int socket) {
  LetGo(g_socketLinks, socket);
}

void ReleaseHeldLinksInSignalHandler() {
  for (std::atomic<int>& slot : g_serialLinks) {
    if (const int fd = slot.exchange(kEmpty); fd != kEmpty) ReleaseSerialLine(fd);
  }
  for (std::atomic<int>& slot : g_socketLinks) {
    if (const int fd = slot.exchange(kEmpty); fd != kEmpty) ::close(fd);
  }
}

}  // namespace qrx
