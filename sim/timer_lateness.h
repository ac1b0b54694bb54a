#pragma once

// How late this machine's timed waits end. A virtual machine's timer may
// fire 50-200 us after the time asked for (more for longer waits), which on
// a 3 Mbit/s line is a fragment's whole answer: the paced line waits this
// much less and spins the rest on the clock, so that an answer is written
// when it is due, never before. Arithmetic only; times in nanoseconds.

#include <algorithm>
#include <cstdint>

namespace qrx::sim {

class TimerLateness {
 public:
  // How long before a deadline to end the timed wait.
  int64_t Early() const { return estimate_ + kMarginNs; }

  // A timed wait asked to end at `asked` ended at `ended`. The estimate goes
  // halfway up to a later wake and eases down slowly, so that it sits near
  // the late end of how wakes spread; the cap keeps a wake delayed by a busy
  // machine (which spinning would only make busier) from making it spin long.
  void Observe(int64_t asked, int64_t ended) {
    const int64_t late = std::clamp<int64_t>(ended - asked, 0, kMostNs);
    estimate_ += late > estimate_ ? (late - estimate_) / kRising : (late - estimate_) / kEasing;
  }

 private:
  static constexpr int64_t kMarginNs = 10'000;
  // Beyond this a spin costs more CPU than a late answer is worth.
  static constexpr int64_t kMostNs = 200'000;
  static constexpr int64_t kRising = 2;
  static constexpr int64_t kEasing = 16;
  int64_t estimate_ = 0;
};

}  // namespace qrx::sim
