#pragma once

// The pseudo-terminal the UART front serves: the host opens the slave side
// like a serial device; the simulator holds the master.

#include <cstdint>
#include <span>
#include <string>

namespace qrx::sim {

// Sets the terminal open at fd raw, 8N1, at any rate in bit/s.
bool SetRawTerminal(int fd, uint32_t rate);

class PtyLine {
 public:
  PtyLine() = default;
  ~PtyLine();
  PtyLine(const PtyLine&) = delete;
  PtyLine& operator=(const PtyLine&) = delete;

  // Creates the pair and leaves the slave raw at 115200 bit/s, closed.
  bool Open(std::string* error);
  const std::string& SlavePath() const { return slavePath_; }

  enum class State : uint8_t { kData, kIdle, kHostAbsent, kError };
  // Waits up to timeoutMs: data from the host, nothing, or no host has the
  // slave open.
  State Wait(int timeoutMs) const;
  // The same to the nanosecond; without wantData only the host's leaving
  // (or the time) ends the wait, so bytes the host wrote stay queued.
  State WaitNs(int64_t timeoutNs, bool wantData) const;
  // Timed waits end as close to their time as the system can (the paced line
  // waits for fractions of a millisecond).
  static void UsePreciseTimers();
  // Bytes read; 0 or less when the host is gone.
  long Read(std::span<uint8_t> buffer) const;
  bool Write(std::span<const uint8_t> bytes) const;
  // The rate the host has set on its terminal, in bit/s.
  uint32_t HostRate() const;
  void Close();

 private:
  int master_ = -1;
  std::string slavePath_;
};

}  // namespace qrx::sim
