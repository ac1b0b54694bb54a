#include "transport/link_release.h"

#include <array>
#include <atomic>

namespace qrx {

namespace {

// A run holds one link; a few slots spare room for tests that open more.
constexpr size_t kSlots = 4;
constexpr intptr_t kEmpty = -1;

static_assert(std::atomic<intptr_t>::is_always_lock_free);
using Slots = std::array<std::atomic<intptr_t>, kSlots>;
Slots g_serialLinks = {kEmpty, kEmpty, kEmpty, kEmpty};
Slots g_socketLinks = {kEmpty, kEmpty, kEmpty, kEmpty};

void Hold(Slots& slots, intptr_t link) {
  for (std::atomic<intptr_t>& slot : slots) {
    intptr_t empty = kEmpty;
    if (slot.compare_exchange_strong(empty, link)) return;
  }
}

void LetGo(Slots& slots, intptr_t link) {
  for (std::atomic<intptr_t>& slot : slots) {
    intptr_t held = link;
    if (slot.compare_exchange_strong(held, kEmpty)) return;
  }
}

}  // namespace

void HoldSerialLink(intptr_t device) {
  Hold(g_serialLinks, device);
}

void LetGoSerialLink(intptr_t device) {
  LetGo(g_serialLinks, device);
}

void HoldSocketLink(intptr_t socket) {
  Hold(g_socketLinks, socket);
}

void LetGoSocketLink(intptr_t socket) {
  LetGo(g_socketLinks, socket);
}

// Whoever empties a slot releases its link: the handler, or the code that let
// it go. So no link is closed twice.
void ReleaseHeldLinksInSignalHandler() {
  for (std::atomic<intptr_t>& slot : g_serialLinks) {
    if (const intptr_t device = slot.exchange(kEmpty); device != kEmpty) {
      ReleaseSerialDeviceAtOnce(device);
    }
  }
  for (std::atomic<intptr_t>& slot : g_socketLinks) {
    if (const intptr_t socket = slot.exchange(kEmpty); socket != kEmpty) CloseSocketAtOnce(socket);
  }
}

}  // namespace qrx
