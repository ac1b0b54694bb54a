#pragma once

#include <cstdint>

namespace qrx {

// Lines for an operator watching a terminal: they are shown when standard
// error is a terminal (or --progress), never with --no-progress, and never
// reach a pipe or a file otherwise, so scripts see the designed console only.
bool TerminalLinesWanted();

// The in-place progress line of a download: percent, bytes of the total,
// effective rate and time left. Shown only where TerminalLinesWanted(), and
// not under -v, whose designed per-fragment lines it would fight with.
void ProgressBegin(uint64_t totalBytes);
// The progress line is replaced by a summary that stays: bytes sent, seconds
// and the effective kbit/s.
void ProgressEnd();

namespace progress_detail {
extern bool g_active;
void Update(uint64_t doneBytes);
}  // namespace progress_detail

// Called once per fragment: without a progress line it costs one test, and
// with one it looks at the clock only every thousandth of the image.
inline void ProgressUpdate(uint64_t doneBytes) {
  if (progress_detail::g_active) progress_detail::Update(doneBytes);
}

}  // namespace qrx
