#include "platform/console.h"

#include <array>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cwchar>
#include <string_view>
#include <vector>

namespace qrx {

namespace {

// Back to the line's start and clear to its end: what erases a status line.
constexpr const char* kEraseLine = "\r\x1b[K";

bool g_statusLineShown = false;
// The status line while it is up, drawn again after each whole line printed.
std::string g_statusText;
// Part of a line is on the screen: the status line waits for its end.
bool g_lineOpen = false;
std::string* g_transcript = nullptr;

enum Stream : size_t { kStdout, kStderr, kStreamCount };
constexpr size_t kNoOpenLine = static_cast<size_t>(-1);
std::vector<std::string>* g_lineLog = nullptr;
std::array<size_t, kStreamCount> g_openLine = {kNoOpenLine, kNoOpenLine};

// Each stream's text is cut into lines of its own, so a line one stream is
// still writing is not broken by the other's.
void LogLines(Stream stream, std::string_view text) {
  if (g_lineLog == nullptr) return;
  size_t& open = g_openLine[stream];
  while (!text.empty()) {
    if (open == kNoOpenLine) {
      open = g_lineLog->size();
      g_lineLog->emplace_back();
    }
    const size_t end = text.find('\n');
    (*g_lineLog)[open].append(text.substr(0, end));
    if (end == std::string_view::npos) return;
    open = kNoOpenLine;
    text.remove_prefix(end + 1);
  }
}

}  // namespace

struct ConsoleSinkAccess {
  static ConsoleCapture* active;
  static std::string& Err() { return active->err_; }
  static std::string& Out() { return active->out_; }
  static void Append(std::string& to, const char* format, va_list args) {
    va_list probe;
    va_copy(probe, args);
    const int needed = std::vsnprintf(nullptr, 0, format, probe);
    va_end(probe);
    if (needed <= 0) return;
    std::vector<char> text(static_cast<size_t>(needed) + 1);
    std::vsnprintf(text.data(), text.size(), format, args);
    to.append(text.data(), static_cast<size_t>(needed));
  }
  static void WriteErr(const char* text) {
    if (active != nullptr) {
      active->err_ += text;
    } else {
      std::fputs(text, stderr);
    }
  }
};
ConsoleCapture* ConsoleSinkAccess::active = nullptr;

namespace {

// Longest wide message the TCP client prints, with room to spare.
constexpr size_t kWideMessageCapacity = 512;
constexpr char kUnprintable = '?';

}  // namespace

ConsoleCapture::ConsoleCapture() {
  ConsoleSinkAccess::active = this;
}
ConsoleCapture::~ConsoleCapture() {
  ConsoleSinkAccess::active = nullptr;
}

namespace {

void DrawStatusLine(bool fitToWidth = true) {
  // Drawn over the previous one, then whatever a longer one left is cleared.
  // One column is left free: a line that fills the last one wraps on some terminals.
  std::string text = g_statusText;
  const int columns = fitToWidth ? ConsoleTerminalColumns() : 0;
  if (columns > 1 && text.size() >= static_cast<size_t>(columns)) {
    text.resize(static_cast<size_t>(columns - 1));
  }
  ConsoleSinkAccess::WriteErr("\r");
  ConsoleSinkAccess::WriteErr(text.c_str());
  ConsoleSinkAccess::WriteErr("\x1b[K");
  g_statusLineShown = true;
}

// Below a whole line just printed, the status line comes back; after part of
// a line it waits, so that the rest of the line joins it unbroken.
void RedrawAfter(const std::string& printed) {
  if (printed.empty()) return;
  g_lineOpen = printed.back() != '\n';
  if (!g_statusText.empty() && !g_lineOpen) DrawStatusLine();
}

}  // namespace

void ConsoleClearStatusLine() {
  g_statusText.clear();
  if (!g_statusLineShown) return;
  g_statusLineShown = false;
  ConsoleSinkAccess::WriteErr(kEraseLine);
}

void ConsoleShowStatusLine(const char* text) {
  g_statusText = text;
  if (!g_lineOpen) DrawStatusLine();
}

void ConsoleKeepStatusLine(const char* text) {
  g_statusText = text;
  if (g_lineOpen) ConsoleSinkAccess::WriteErr("\n");
  g_lineOpen = false;
  DrawStatusLine(false);  // it stays, so it may take two rows rather than lose its end
  ConsoleSinkAccess::WriteErr("\n");
  g_statusText.clear();
  g_statusLineShown = false;
}

namespace {

// Erases the status line for the text about to be printed; it is drawn again after.
void HideStatusLine() {
  if (!g_statusLineShown) return;
  g_statusLineShown = false;
  ConsoleSinkAccess::WriteErr(kEraseLine);
}

}  // namespace

void ConsoleRecordInto(std::string* transcript) {
  g_transcript = transcript;
}

void ConsoleLogLinesInto(std::vector<std::string>* lines) {
  g_lineLog = lines;
  g_openLine.fill(kNoOpenLine);
}

void ConsolePrintf(const char* format, ...) {
  HideStatusLine();
  va_list args;
  va_start(args, format);
  std::string text;
  ConsoleSinkAccess::Append(text, format, args);
  va_end(args);
  if (ConsoleSinkAccess::active != nullptr) {
    ConsoleSinkAccess::Err() += text;
  } else {
    std::fwrite(text.data(), 1, text.size(), stderr);
  }
  if (g_transcript != nullptr) g_transcript->append(text);
  LogLines(kStderr, text);
  RedrawAfter(text);
}

void StdoutPrintf(const char* format, ...) {
  // Both streams often share one terminal.
  HideStatusLine();
  va_list args;
  va_start(args, format);
  std::string text;
  ConsoleSinkAccess::Append(text, format, args);
  va_end(args);
  if (ConsoleSinkAccess::active != nullptr) {
    ConsoleSinkAccess::Out() += text;
  } else {
    std::fwrite(text.data(), 1, text.size(), stdout);
    // Out before the status line is drawn again on the shared screen.
    if (!g_statusText.empty()) std::fflush(stdout);
  }
  LogLines(kStdout, text);
  RedrawAfter(text);
}

void StdoutWidePrintf(const wchar_t* format, ...) {
  wchar_t text[kWideMessageCapacity];
  va_list args;
  va_start(args, format);
  const int written = std::vswprintf(text, kWideMessageCapacity, format, args);
  va_end(args);
  if (written < 0) return;
  // The messages are plain ASCII; a capture and the line log hold them as the
  // narrow bytes both systems write.
  std::string narrow;
  for (const wchar_t* c = text; *c != L'\0'; ++c) {
    narrow += (static_cast<uint32_t>(*c) < 0x80) ? static_cast<char>(*c) : kUnprintable;
  }
  LogLines(kStdout, narrow);
  if (ConsoleSinkAccess::active == nullptr) {
    StdoutWriteWide(text);
    return;
  }
  ConsoleSinkAccess::Out() += narrow;
}

void StdoutFlush() {
  if (ConsoleSinkAccess::active == nullptr) std::fflush(stdout);
}

}  // namespace qrx
