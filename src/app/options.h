#pragma once

#include <cstdint>

#include "run/run_options.h"

namespace qrx {

// Parses argv into g_runOptions, printing every complaint on standard error.
// false: the process ends with failure status.
bool ParseCommandLine(int argc, const char* const* argv);

// Banner and usage text, on standard error.
void PrintUsage();
// The same on standard output, for --help.
void PrintUsageOnStdout();
// The name and version, then the banner line, on standard output, for --version.
void PrintBannerOnStdout();

// The -r rate tables as stand-alone functions: rate text in, rate and
// controller code out. Always succeed. The code is left untouched where the
// table leaves it (6000000 on ASIC), so callers pass in the current code.
bool MapAsicBaudRate(const char* rateText, uint32_t* rate, uint8_t* code);
bool MapFpgaBaudRate(const char* rateText, uint32_t* rate, uint8_t* code);

}  // namespace qrx
