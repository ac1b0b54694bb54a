#include "platform/console.h"

#include <cstdarg>
#include <cstdio>
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

void StdoutFlush() {
  if (ConsoleSinkAccess::active == nullptr) std::fflush(stdout);
}

}  // namespace qrx
