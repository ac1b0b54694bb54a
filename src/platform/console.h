#pragma once

#include <string>
#include <vector>

namespace qrx {

// Set up once, first thing in the process (console_posix.cpp,
// console_win32.cpp): both streams write through, so a line is seen whole the
// moment it is printed, the unfinished one too, and a killed run loses none
// of it. Each print below is formatted first and handed over as one write.
void ConsoleStart();

// The one console printer. Everything the loader tells the operator is
// printf-formatted text on standard error.
void ConsolePrintf(const char* format, ...) __attribute__((format(printf, 1, 2)));

// Standard output carries only the serial port's own messages (this one) and
// the TCP client's wide-character messages (the next).
void StdoutPrintf(const char* format, ...) __attribute__((format(printf, 1, 2)));
// The TCP client's messages are wide-character text. Windows writes them as
// wide text; POSIX as narrow text, since a POSIX stream takes one orientation
// and standard output must never mix the two. The bytes are the same.
void StdoutWidePrintf(const wchar_t* format, ...);
void StdoutFlush();

// Standard error is a terminal someone is watching, not a pipe or a file.
bool ConsoleIsTerminal();

// Columns of the terminal on standard error; 0 when unknown (not a terminal).
int ConsoleTerminalColumns();

// One line drawn in place on standard error (a progress line), cut to the
// terminal's width so that it never wraps. It is erased before anything else
// is printed on either stream, and drawn again below every whole line printed
// while it is up, so the text around it reads exactly as without it and the
// line stays in sight. Callers draw it only on a terminal.
void ConsoleShowStatusLine(const char* text);
void ConsoleClearStatusLine();
// Puts the status line down for good as this text, which stays on the screen
// (a summary); it is no part of a recorded transcript either.
void ConsoleKeepStatusLine(const char* text);

// While a transcript is set, everything printed on standard error is also
// appended to it (the status line excepted). nullptr stops recording.
void ConsoleRecordInto(std::string* transcript);

// While a line log is set, every line printed on either stream is also kept
// in it, without its line end, in the order the lines began; a line not yet
// ended is there as far as it goes. nullptr stops logging.
void ConsoleLogLinesInto(std::vector<std::string>* lines);

// The system's half of StdoutWidePrintf (console_posix.cpp, console_win32.cpp):
// puts formatted wide text on standard output. Only the printer calls it.
void StdoutWriteWide(const wchar_t* text);

// Test hook: while a capture is alive, both streams are appended to strings
// instead of reaching the process's descriptors. Captures do not nest.
class ConsoleCapture {
 public:
  ConsoleCapture();
  ~ConsoleCapture();
  ConsoleCapture(const ConsoleCapture&) = delete;
  ConsoleCapture& operator=(const ConsoleCapture&) = delete;

  const std::string& Err() const { return err_; }
  const std::string& Out() const { return out_; }
  void Clear() {
    err_.clear();
    out_.clear();
  }

 private:
  friend struct ConsoleSinkAccess;
  std::string err_;
  std::string out_;
};

}  // namespace qrx
