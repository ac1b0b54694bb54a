#include "platform/console.h"

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cwchar>
#include <vector>

namespace qrx {

namespace {

// Back to the line's start and clear to its end: what erases a status line.
constexpr const char* kEraseLine = "\r\x1b[K";

bool g_statusLineShown = false;
std::string* g_transcript = nullptr;

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

void ConsoleClearStatusLine() {
  if (!g_statusLineShown) return;
  g_statusLineShown = false;
  ConsoleSinkAccess::WriteErr(kEraseLine);
}

void ConsoleShowStatusLine(const char* text) {
  // Drawn over the previous one, then whatever a longer one left is cleared.
  ConsoleSinkAccess::WriteErr("\r");
  ConsoleSinkAccess::WriteErr(text);
  ConsoleSinkAccess::WriteErr("\x1b[K");
  g_statusLineShown = true;
}

void ConsoleRecordInto(std::string* transcript) {
  g_transcript = transcript;
}

void ConsolePrintf(const char* format, ...) {
  ConsoleClearStatusLine();
  std::string text;
  va_list args;
  va_start(args, format);
  ConsoleSinkAccess::Append(text, format, args);
  va_end(args);
  if (ConsoleSinkAccess::active != nullptr) {
    ConsoleSinkAccess::Err() += text;
  } else {
    std::fwrite(text.data(), 1, text.size(), stderr);
  }
  if (g_transcript != nullptr) g_transcript->append(text);
}

void StdoutPrintf(const char* format, ...) {
  // Both streams often share one terminal.
  ConsoleClearStatusLine();
  std::string text;
  va_list args;
  va_start(args, format);
  ConsoleSinkAccess::Append(text, format, args);
  va_end(args);
  if (ConsoleSinkAccess::active != nullptr) {
    ConsoleSinkAccess::Out() += text;
  } else {
    std::fwrite(text.data(), 1, text.size(), stdout);
  }
}

void StdoutWidePrintf(const wchar_t* format, ...) {
  wchar_t text[kWideMessageCapacity];
  va_list args;
  va_start(args, format);
  const int written = std::vswprintf(text, kWideMessageCapacity, format, args);
  va_end(args);
  if (written < 0) return;
  if (ConsoleSinkAccess::active == nullptr) {
    StdoutWriteWide(text);
    return;
  }
  // The messages are plain ASCII; a capture holds them as the narrow bytes
  // both systems write.
  for (const wchar_t* c = text; *c != L'\0'; ++c) {
    ConsoleSinkAccess::Out() +=
        (static_cast<uint32_t>(*c) < 0x80) ? static_cast<char>(*c) : kUnprintable;
  }
}

void StdoutFlush() {
  if (ConsoleSinkAccess::active == nullptr) std::fflush(stdout);
}

}  // namespace qrx
