#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <thread>
#include <vector>

namespace qrx::test {

// The far end of a client's TCP connection, for tests: a real socket on
// 127.0.0.1 driven by a script on its own thread. Every wait is bounded, so a
// broken exchange fails the test instead of hanging it.
class LoopbackPeer {
 public:
  static constexpr int kDefaultTimeoutMs = 5000;
  enum class Mode {
    kListening,  // accepts connections
    kBoundOnly,  // holds the port without listening: connecting is refused
  };

  // Port 0 lets the system pick a free one.
  explicit LoopbackPeer(uint16_t port = 0, Mode mode = Mode::kListening);
  ~LoopbackPeer();
  LoopbackPeer(const LoopbackPeer&) = delete;
  LoopbackPeer& operator=(const LoopbackPeer&) = delete;

  // "0" when the port could not be taken (e.g. a fixed port already in use).
  std::string PortText() const { return std::to_string(port_); }

  bool Accept(int timeoutMs = kDefaultTimeoutMs);
  // n bytes, or fewer when the client closed or the time ran out. Everything
  // read is also appended to Received().
  std::vector<uint8_t> ReadExact(size_t n, int timeoutMs = kDefaultTimeoutMs);
  bool Send(std::span<const uint8_t> bytes);
  void Close();  // the accepted connection

  // Runs the script on a thread. When it returns the connection is closed, so
  // a client still waiting for an answer sees the close.
  void Run(std::function<void(LoopbackPeer&)> script);
  void Join();

  const std::vector<uint8_t>& Received() const { return received_; }

 private:
  int listener_ = -1;
  int connection_ = -1;
  uint16_t port_ = 0;
  std::thread script_;
  std::vector<uint8_t> received_;
};

}  // namespace qrx::test
