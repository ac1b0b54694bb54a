#include "transport/link_release.h"

#include <atomic>

namespace qrx {

namespace {

// A run holds one link; a few slots spare room for tests that open more.
constexpr size_t kSlots = 4;
constexpr intptr_t kEmpty = -1;

static_assert(std::atomic<intptr_t>::is_always_lock_free);
static_assert(std::atomic<bool>::is_always_lock_free);

struct SocketSlot {
  std::atomic<intptr_t> link{kEmpty};
};

// The driver state is written before `stateKept` is set, and the handler
// reads it only after taking the flag, so it never sees half a state.
struct SerialSlot {
  std::atomic<intptr_t> link{kEmpty};
  std::atomic<bool> stateKept{false};
  SerialDriverState state;
};

std::array<SerialSlot, kSlots> g_serialLinks;
std::array<SocketSlot, kSlots> g_socketLinks;

template <typename Slot>
void Hold(std::array<Slot, kSlots>& slots, intptr_t link) {
  for (Slot& slot : slots) {
    intptr_t empty = kEmpty;
    if (slot.link.compare_exchange_strong(empty, link)) return;
  }
}

template <typename Slot>
Slot* Holding(std::array<Slot, kSlots>& slots, intptr_t link) {
  for (Slot& slot : slots) {
    if (slot.link.load() == link) return &slot;
  }
  return nullptr;
}

template <typename Slot>
void LetGo(std::array<Slot, kSlots>& slots, intptr_t link) {
  for (Slot& slot : slots) {
    intptr_t held = link;
    if (slot.link.compare_exchange_strong(held, kEmpty)) return;
  }
}

}  // namespace

void HoldSerialLink(intptr_t device) {
  Hold(g_serialLinks, device);
}

// The state is forgotten first: a handler that still finds the link then only
// releases it, and the ordinary close has put the state back already.
void LetGoSerialLink(intptr_t device) {
  ForgetSerialDriverState(device);
  LetGo(g_serialLinks, device);
}

void ForgetSerialDriverState(intptr_t device) {
  if (SerialSlot* slot = Holding(g_serialLinks, device)) slot->stateKept.store(false);
}

bool KeepSerialDriverState(intptr_t device, const SerialDriverState& state) {
  SerialSlot* slot = Holding(g_serialLinks, device);
  if (slot == nullptr) return false;
  slot->state = state;
  slot->stateKept.store(true);
  return true;
}

const SerialDriverState* KeptSerialDriverState(intptr_t device) {
  const SerialSlot* slot = Holding(g_serialLinks, device);
  return slot != nullptr && slot->stateKept.load() ? &slot->state : nullptr;
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
  for (SerialSlot& slot : g_serialLinks) {
    if (const intptr_t device = slot.link.exchange(kEmpty); device != kEmpty) {
      if (slot.stateKept.exchange(false)) RestoreSerialDriverAtOnce(device, slot.state);
      ReleaseSerialDeviceAtOnce(device);
    }
  }
  for (SocketSlot& slot : g_socketLinks) {
    if (const intptr_t socket = slot.link.exchange(kEmpty); socket != kEmpty) {
      CloseSocketAtOnce(socket);
    }
  }
}

}  // namespace qrx
