#include "uart_front.h"

#include <array>
#include <optional>
#include <vector>

#include "model/line_rate.h"
#include "platform/clock.h"
#include "platform/console.h"

namespace qrx::sim {

namespace {

constexpr int kStopCheckMs = 100;
constexpr uint32_t kHostPollMs = 10;  // while no host has the line open
constexpr uint32_t kPieceGapMs = 5;   // between the pieces of a split packet
constexpr size_t kReadBufferSize = 1024;

enum class Sent : uint8_t { kOk, kLineClosed, kFailed };

// Writes what the controller has queued, as the delivery marks say.
Sent Deliver(PtyLine& line, Controller& controller) {
  while (std::optional<OutPacket> packet = controller.PopOutput()) {
    if (packet->delivery & kDeliverClose) return Sent::kLineClosed;
    std::vector<uint8_t> bytes;
    if (packet->delivery & kDeliverNoise) bytes.push_back(kNoiseByte);
    bytes.insert(bytes.end(), packet->bytes.begin(), packet->bytes.end());
    if (packet->delivery & kDeliverJoinNext) {
      if (std::optional<OutPacket> next = controller.PopOutput()) {
        bytes.insert(bytes.end(), next->bytes.begin(), next->bytes.end());
      }
    }
    const uint32_t hostRate = line.HostRate();
    if (!RatesAgree(hostRate, controller.LineRate())) {
      ConsolePrintf("qrxvps: %zu byte(s) to the host lost: host at %u bit/s, controller at %u\n",
                    bytes.size(), hostRate, controller.LineRate());
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
  if (lost > 0) {
    ConsolePrintf("qrxvps: %zu byte(s) from the host lost: host at %u bit/s, controller at %u\n",
                  lost, hostRate, controller.LineRate());
  }
}

}  // namespace

int ServeUart(PtyLine& line, const SessionSettings& settings, const std::atomic<bool>& stop) {
  std::optional<Controller> controller;
  std::array<uint8_t, kReadBufferSize> buffer;
  while (!stop.load()) {
    const PtyLine::State state = line.Wait(controller ? kStopCheckMs : 0);
    if (state == PtyLine::State::kError) return 1;
    if (state == PtyLine::State::kHostAbsent) {
      if (controller) {
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
