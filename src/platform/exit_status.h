#pragma once

namespace qrx {

// What the process returns. The design returns -1 for every failure; each
// system's backend spells that as its own exit code: 255 on POSIX, where an
// exit status has eight bits, and -1 on Windows (0xFFFFFFFF), which a batch
// file reads as %errorlevel% -1.
inline constexpr int kExitSuccess = 0;
extern const int kExitFailure;

}  // namespace qrx
