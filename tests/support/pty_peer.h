#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace qrx {

// The far end of a UART as a test scripts it: the master side of a pseudo-
// terminal whose slave path the code under test opens as its serial device.
//
// The peer keeps a descriptor of its own on the slave, never read, so that the
// line does not hang up while the host has it closed, and so that it can see
// how many bytes are waiting for the host. The line rate the host sets on the
// slave (termios2, BOTHER, any value) is reported unchanged through the
// master: a pseudo-terminal keeps c_ospeed as given and moves bytes at once.
// A purge by the host (TCIOFLUSH on the slave) drops what waits for the host
// but not what the host already sent; RTS ioctls fail on a pseudo-terminal.
class PtyPeer {
 public:
  PtyPeer();
  ~PtyPeer();
  PtyPeer(const PtyPeer&) = delete;
  PtyPeer& operator=(const PtyPeer&) = delete;

  // False when the pseudo-terminal could not be set up; tests assert it.
  bool Ready() const { return master_ >= 0 && slave_ >= 0; }
  const std::string& SlavePath() const { return slavePath_; }

  // What the host wrote: exactly `count` bytes, or fewer when `timeoutMs`
  // ran out first.
  std::vector<uint8_t> Read(size_t count, int timeoutMs = 2000);

  // Sends to the host; true when every byte went.
  bool Write(std::span<const uint8_t> bytes);
  // Waits until at least `count` written bytes are waiting for the host to
  // read them (delivery to the slave is asynchronous).
  bool WaitUntilHostHas(size_t count, int timeoutMs = 2000);
  size_t BytesWaitingForHost() const;

  // Output line rate in bit/s as the host last set it on the slave.
  uint32_t LineRate() const;

 private:
  int master_ = -1;
  int slave_ = -1;
  std::string slavePath_;
};

}  // namespace qrx
