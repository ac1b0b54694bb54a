#include "uart_front.h"

#include <algorithm>
#include <array>
#include <deque>
#include <optional>
#include <vector>

#include "model/line_rate.h"
#include "paced_wire.h"
#include "timer_lateness.h"
#include "platform/clock.h"
#include "platform/console.h"

namespace qrx::sim {

namespace {

constexpr int kStopCheckMs = 100;
constexpr uint32_t kHostPollMs = 10;  // while no host has the line open
constexpr uint32_t kPieceGapMs = 5;   // between the pieces of a split packet
constexpr size_t kReadBufferSize = 1024;

enum class Sent : uint8_t { kOk, kLineClosed, kFailed };

// The bytes of one packet, with the noise byte and the joined packet the
// delivery marks ask for.
std::vector<uint8_t> PacketBytes(const OutPacket& packet, Controller& controller) {
  const bool noise = (packet.delivery & kDeliverNoise) != 0;
  std::vector<uint8_t> bytes(packet.bytes.size() + (noise ? 1 : 0), kNoiseByte);
  std::copy(packet.bytes.begin(), packet.bytes.end(), bytes.begin() + (noise ? 1 : 0));
  if (packet.delivery & kDeliverJoinNext) {
    if (std::optional<OutPacket> next = controller.PopOutput()) {
      bytes.insert(bytes.end(), next->bytes.begin(), next->bytes.end());
    }
  }
  return bytes;
}

void ReportLost(const char* direction, size_t count, uint32_t hostRate, uint32_t controllerRate) {
  ConsolePrintf("qrxvps: %zu byte(s) %s lost: host at %u bit/s, controller at %u\n", count,
                direction, hostRate, controllerRate);
}

// Writes what the controller has queued, as the delivery marks say.
Sent Deliver(PtyLine& line, Controller& controller) {
  while (std::optional<OutPacket> packet = controller.PopOutput()) {
    if (packet->delivery & kDeliverClose) return Sent::kLineClosed;
    const std::vector<uint8_t> bytes = PacketBytes(*packet, controller);
    const uint32_t hostRate = line.HostRate();
    if (!RatesAgree(hostRate, controller.LineRate())) {
      ReportLost("to the host", bytes.size(), hostRate, controller.LineRate());
      continue;
    }
    if (!(packet->delivery & kDeliverSplit)) {
      if (!line.Write(bytes)) return Sent::kFailed;
      continue;
    }
    size_t at = 0;
    for (size_t piece : kSplitPieces) {
      const size_t take = std::min(piece, bytes.size() - at);
      if (take == 0) break;
      if (!line.Write(std::span<const uint8_t>(bytes).subspan(at, take))) return Sent::kFailed;
      at += take;
      SleepMilliseconds(kPieceGapMs);
    }
    if (at < bytes.size() && !line.Write(std::span<const uint8_t>(bytes).subspan(at))) {
      return Sent::kFailed;
    }
  }
  return Sent::kOk;
}

// Bytes sent while the two ends disagree on the rate arrive as framing
// errors, which the controller discards.
void Hear(Controller& controller, std::span<const uint8_t> bytes, uint32_t hostRate) {
  size_t lost = 0;
  for (size_t i = 0; i < bytes.size(); ++i) {
    if (RatesAgree(hostRate, controller.LineRate())) {
      controller.Receive(bytes.subspan(i, 1));
    } else {
      ++lost;
    }
  }
  if (lost > 0) ReportLost("from the host", lost, hostRate, controller.LineRate());
}

int64_t NowNs() {
  return PerformanceCounter();  // nanoseconds on this system
}

constexpr int64_t kNsPerMs = 1'000'000;
constexpr int64_t kStopCheckNs = kStopCheckMs * kNsPerMs;
// Host bytes are taken off the terminal only this long before the line is
// free for them: the rest wait in the terminal, as in a driver's transmit
// buffer, and hold the host's writes back. Long enough that a late wake-up of
// this process on a busy machine does not leave the line idle (which would be
// counted against the host), short enough that the host is never more than a
// transmit buffer ahead (at 3 Mbit/s about 4 KiB, at 115200 one read).
constexpr int64_t kReadAheadNs = 10 * kNsPerMs;

// One session on a paced line: the controller hears each byte the moment it
// has crossed (the model is fed at once; only what it sends is held back, to
// the time its cause arrived plus its own crossing), and its packets are
// written to the host in order, each when it is due.
class PacedSession {
 public:
  PacedSession(Controller controller, int64_t latencyNs)
      : controller_(std::move(controller)), toController_(latencyNs), toHost_(latencyNs) {}

  bool WantsHostBytes(int64_t now) const { return toController_.FreeAt() <= now + kReadAheadNs; }

  // How long to wait from now: until the next packet is due, or the line to
  // the controller has room again.
  int64_t WaitNs(int64_t now) const {
    int64_t until = now + kStopCheckNs;
    if (!due_.empty()) until = std::min(until, due_.front().atNs);
    if (!WantsHostBytes(now)) until = std::min(until, toController_.FreeAt() - kReadAheadNs);
    return std::max<int64_t>(0, until - now);
  }

  void Hear(std::span<const uint8_t> bytes, int64_t now, uint32_t hostRate) {
    size_t lost = 0;
    for (size_t i = 0; i < bytes.size(); ++i) {
      const int64_t arrived = toController_.Put(now, 1, hostRate);
      if (!RatesAgree(hostRate, controller_.LineRate())) {
        ++lost;
        continue;
      }
      controller_.Receive(bytes.subspan(i, 1));
      while (std::optional<OutPacket> packet = controller_.PopOutput()) Send(*packet, arrived);
    }
    if (lost > 0) ReportLost("from the host", lost, hostRate, controller_.LineRate());
  }

  // Writes every packet due by now.
  Sent DeliverDue(const PtyLine& line, int64_t now) {
    while (!due_.empty() && due_.front().atNs <= now) {
      const Due packet = std::move(due_.front());
      due_.pop_front();
      if (packet.close) return Sent::kLineClosed;
      const uint32_t hostRate = line.HostRate();
      if (!RatesAgree(hostRate, packet.rate)) {
        ReportLost("to the host", packet.bytes.size(), hostRate, packet.rate);
        continue;
      }
      if (!line.Write(packet.bytes)) return Sent::kFailed;
    }
    return Sent::kOk;
  }

  void PrintWire() const {
    StdoutPrintf("qrxvps: wire %lld ns, %llu bytes to the controller, %llu bytes to the host\n",
                 static_cast<long long>(toController_.BusyNs() + toHost_.BusyNs()),
                 static_cast<unsigned long long>(toController_.Bytes()),
                 static_cast<unsigned long long>(toHost_.Bytes()));
  }

 private:
  struct Due {
    int64_t atNs;
    std::vector<uint8_t> bytes;
    uint32_t rate;
    bool close;
  };

  // A split packet's pieces cross with the same pause between them as on
  // the plain line.
  void Send(const OutPacket& packet, int64_t from) {
    const uint32_t rate = controller_.LineRate();
    if (packet.delivery & kDeliverClose) {
      due_.push_back({std::max(from, toHost_.FreeAt()), {}, rate, true});
      return;
    }
    const std::vector<uint8_t> bytes = PacketBytes(packet, controller_);
    std::span<const uint8_t> rest(bytes);
    if (packet.delivery & kDeliverSplit) {
      for (size_t piece : kSplitPieces) {
        const size_t take = std::min(piece, rest.size());
        if (take == 0) break;
        Queue(rest.first(take), from, rate);
        rest = rest.subspan(take);
        from = toHost_.FreeAt() + kPieceGapMs * kNsPerMs;
      }
      if (rest.empty()) return;
    }
    Queue(rest, from, rate);
  }

  void Queue(std::span<const uint8_t> bytes, int64_t from, uint32_t rate) {
    const int64_t at = toHost_.Put(from, bytes.size(), rate);
    due_.push_back({at, std::vector<uint8_t>(bytes.begin(), bytes.end()), rate, false});
  }

  Controller controller_;
  PacedWire toController_;
  PacedWire toHost_;
  std::deque<Due> due_;
};

}  // namespace

int ServePacedUart(PtyLine& line, const SessionSettings& settings, const std::atomic<bool>& stop) {
  PtyLine::UsePreciseTimers();
  const int64_t latencyNs = int64_t{settings.latencyMs} * kNsPerMs;
  std::optional<PacedSession> session;
  TimerLateness lateness;
  std::array<uint8_t, kReadBufferSize> buffer;
  while (!stop.load()) {
    // An answer the host cannot take any more: it has closed the terminal.
    bool hostGone = false;
    if (session) {
      switch (session->DeliverDue(line, NowNs())) {
        case Sent::kOk:
          break;
        case Sent::kLineClosed:
          line.Close();
          return 0;
        case Sent::kFailed:
          hostGone = true;
          break;
      }
    }
    const int64_t now = NowNs();
    PtyLine::State state = PtyLine::State::kHostAbsent;
    if (!hostGone && session) {
      // The timed wait ends early and the loop spins on the clock the rest.
      const int64_t sleepNs = std::max<int64_t>(0, session->WaitNs(now) - lateness.Early());
      state = line.WaitNs(sleepNs, session->WantsHostBytes(now));
      if (state == PtyLine::State::kIdle && sleepNs > 0) lateness.Observe(now + sleepNs, NowNs());
    } else if (!hostGone) {
      state = line.Wait(0);
    }
    if (state == PtyLine::State::kError) return 1;
    if (state == PtyLine::State::kHostAbsent) {
      if (session) {
        // What the host wrote before it left still reaches the controller
        // (and its log); nobody hears the answers.
        for (long count;
             line.Wait(0) == PtyLine::State::kData && (count = line.Read(buffer)) > 0;) {
          session->Hear(std::span<const uint8_t>(buffer.data(), count), NowNs(), line.HostRate());
        }
        StdoutPrintf("qrxvps: host closed the line at %u bit/s\n", line.HostRate());
        session->PrintWire();
        StdoutFlush();
        session.reset();
        if (settings.once) return 0;
      }
      SleepMilliseconds(kHostPollMs);
      continue;
    }
    if (!session) session.emplace(NewSessionController(settings), latencyNs);
    if (state == PtyLine::State::kIdle) continue;
    const long count = line.Read(buffer);
    if (count <= 0) continue;
    session->Hear(std::span<const uint8_t>(buffer.data(), count), NowNs(), line.HostRate());
  }
  return 0;
}

int ServeUart(PtyLine& line, const SessionSettings& settings, const std::atomic<bool>& stop) {
  std::optional<Controller> controller;
  std::array<uint8_t, kReadBufferSize> buffer;
  while (!stop.load()) {
    const PtyLine::State state = line.Wait(controller ? kStopCheckMs : 0);
    if (state == PtyLine::State::kError) return 1;
    if (state == PtyLine::State::kHostAbsent) {
      if (controller) {
        // The rate the host left the line at: what a loader must restore.
        StdoutPrintf("qrxvps: host closed the line at %u bit/s\n", line.HostRate());
        StdoutFlush();
        controller.reset();
        if (settings.once) return 0;
      }
      SleepMilliseconds(kHostPollMs);
      continue;
    }
    // The host has the terminal open: a session runs.
    if (!controller) controller.emplace(NewSessionController(settings));
    if (state == PtyLine::State::kIdle) continue;
    const long count = line.Read(buffer);
    if (count <= 0) continue;  // the host went away; the next wait says so
    Hear(*controller, std::span<const uint8_t>(buffer.data(), count), line.HostRate());
    switch (Deliver(line, *controller)) {
      case Sent::kOk:
        break;
      case Sent::kLineClosed:
        line.Close();
        return 0;
      case Sent::kFailed:
        // The host closed the terminal before it heard the answer.
        controller.reset();
        if (settings.once) return 0;
        break;
    }
  }
  return 0;
}

}  // namespace qrx::sim
