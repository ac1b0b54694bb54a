#include "platform/console.h"

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cwchar>
#include <vector>

namespace qrx {

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

void ConsolePrintf(const char* format, ...) {
  va_list args;
  va_start(args, format);
  if (ConsoleSinkAccess::active != nullptr) {
    ConsoleSinkAccess::Append(ConsoleSinkAccess::Err(), format, args);
  } else {
    std::vfprintf(stderr, format, args);
  }
  va_end(args);
}

void StdoutPrintf(const char* format, ...) {
  va_list args;
  va_start(args, format);
  if (ConsoleSinkAccess::active != nullptr) {
    ConsoleSinkAccess::Append(ConsoleSinkAccess::Out(), format, args);
  } else {
    std::vfprintf(stdout, format, args);
  }
  va_end(args);
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
