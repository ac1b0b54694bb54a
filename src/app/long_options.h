#pragma once

namespace qrx {

// What the command line asks for besides a run.
enum class LongOptionResult {
  kRun,      // go on with the design's parser and the run
  kFailed,   // a double-dash option was malformed; its complaint is printed
  kHelp,     // --help alone: the usage text on standard output
  kVersion,  // --version alone: the version and banner lines on standard output
};

// Reads the double-dash options and their environment variables into
// g_runOptions. The design's parser skips every argument it does not know, so
// these never change what a design command line does. Unknown double-dash
// arguments are ignored, as the design ignores unknown arguments.
LongOptionResult ParseLongOptions(int argc, const char* const* argv);

}  // namespace qrx
