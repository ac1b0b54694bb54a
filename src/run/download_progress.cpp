#include "run/download_progress.h"

#include <algorithm>
#include <cstdio>

#include "platform/clock.h"
#include "platform/console.h"
#include "run/run_options.h"

namespace qrx {

namespace {

constexpr uint64_t kUpdateStepsPerImage = 1000;
constexpr int64_t kMinimumRedrawMilliseconds = 100;
constexpr int64_t kSecondsPerMinute = 60;
constexpr double kMinimumRateSeconds = 0.25;

struct Progress {
  uint64_t total = 0;
  uint64_t nextCheck = 0;
  int64_t startTicks = 0;
  int64_t lastDrawTicks = 0;
  uint64_t lastDrawnBytes = 0;
  uint64_t done = 0;  // the latest count, drawn or not
};
Progress g_progress;

int64_t TicksAfter(int64_t milliseconds) {
  return PerformanceFrequency() / 1000 * milliseconds;
}

void Draw(uint64_t done, int64_t now) {
  const uint64_t total = g_progress.total;
  const double percent = total == 0 ? 100.0 : 100.0 * static_cast<double>(done) / total;
  const double seconds = static_cast<double>(now - g_progress.startTicks) /
                         static_cast<double>(PerformanceFrequency());
  char line[128];
  // The first moments of a download say nothing yet about its rate.
  if (done == 0 || seconds < kMinimumRateSeconds) {
    std::snprintf(line, sizeof line, "%3.0f%% %llu/%llu bytes", percent,
                  static_cast<unsigned long long>(done), static_cast<unsigned long long>(total));
  } else {
    const double bytesPerSecond = static_cast<double>(done) / seconds;
    const auto left =
        static_cast<int64_t>(static_cast<double>(total - done) / bytesPerSecond + 0.5);
    std::snprintf(line, sizeof line, "%3.0f%% %llu/%llu bytes  %.1f kbit/s  %lld:%02lld left",
                  percent, static_cast<unsigned long long>(done),
                  static_cast<unsigned long long>(total), bytesPerSecond * 8.0 / 1000.0,
                  static_cast<long long>(left / kSecondsPerMinute),
                  static_cast<long long>(left % kSecondsPerMinute));
  }
  ConsoleShowStatusLine(line);
  g_progress.lastDrawTicks = now;
  g_progress.lastDrawnBytes = done;
}

}  // namespace

namespace progress_detail {

bool g_active = false;

void Update(uint64_t doneBytes) {
  const uint64_t done = std::min(doneBytes, g_progress.total);
  g_progress.done = done;
  if (done < g_progress.nextCheck && done != g_progress.total) return;
  // The loops ask once more after the last fragment: the full line is drawn once.
  if (done == g_progress.total && g_progress.lastDrawnBytes == done) return;
  g_progress.nextCheck = done + std::max<uint64_t>(g_progress.total / kUpdateStepsPerImage, 1);
  const int64_t now = PerformanceCounter();
  if (done != g_progress.total &&
      now - g_progress.lastDrawTicks < TicksAfter(kMinimumRedrawMilliseconds)) {
    return;
  }
  Draw(done, now);
}

}  // namespace progress_detail

bool TerminalLinesWanted() {
  switch (g_runOptions.progress) {
    case ProgressMode::kOn:
      return true;
    case ProgressMode::kOff:
      return false;
    case ProgressMode::kAuto:
      break;
  }
  return ConsoleIsTerminal();
}

void ProgressBegin(uint64_t totalBytes) {
  progress_detail::g_active = !g_runOptions.verbose && TerminalLinesWanted();
  if (!progress_detail::g_active) return;
  g_progress = Progress{};
  g_progress.total = totalBytes;
  g_progress.startTicks = PerformanceCounter();
  // Drawn first by the first fragment, below the lines that announce the download.
  g_progress.lastDrawTicks = g_progress.startTicks - TicksAfter(kMinimumRedrawMilliseconds);
}

void ProgressEnd() {
  if (!progress_detail::g_active) return;
  progress_detail::g_active = false;
  // The progress line gives way to a summary that stays: what went, how long it took.
  const double seconds = static_cast<double>(PerformanceCounter() - g_progress.startTicks) /
                         static_cast<double>(PerformanceFrequency());
  const double kbits = seconds > 0 ? static_cast<double>(g_progress.done) * 8.0 / 1000.0 / seconds
                                   : 0.0;
  char line[128];
  if (g_progress.done == g_progress.total) {
    std::snprintf(line, sizeof line, "Sent %llu bytes in %.2f s, %.1f kbit/s",
                  static_cast<unsigned long long>(g_progress.done), seconds, kbits);
  } else {
    std::snprintf(line, sizeof line, "Sent %llu of %llu bytes in %.2f s, %.1f kbit/s",
                  static_cast<unsigned long long>(g_progress.done),
                  static_cast<unsigned long long>(g_progress.total), seconds, kbits);
  }
  ConsoleKeepStatusLine(line);
}

}  // namespace qrx
