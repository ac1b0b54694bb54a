#pragma once

// What the link targets share: tracing on (so every packet is also
// hex-dumped) into nowhere, and the run's two event reads taken in turn until
// the peer has nothing more to say.

#include <array>
#include <cstdint>
#include <cstdlib>

#include "fake_world.h"
#include "hci/hci_exchange.h"
#include "platform/trace.h"

namespace qrx::fuzz {

inline void TraceIntoNothing() {
  setenv("QRXBPL_TRACE_FILE", "/dev/null", 1);
  TraceProviderRegister();
}

// Both of the run's reads: the version read's and the exchange's.
inline void ReadEventsBothWays(const FakePeer& peer) {
  constexpr int kMostReads = 512;
  std::array<uint8_t, kEventBufferSize> event{};
  for (int read = 0; read < kMostReads && !peer.incoming.empty(); ++read) {
    uint32_t length = 0;
    if (read % 2 == 0) {
      ReceiveEventDirect(event.data(), &length, kEventTimeoutMs);
    } else {
      QRXBPLRecvCommand(event.data(), static_cast<uint32_t>(event.size()), &length,
                        kEventTimeoutMs);
    }
  }
}

}  // namespace qrx::fuzz
