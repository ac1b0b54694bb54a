#pragma once

namespace qrx {

// What the command line asks for besides a run.
enum class LongOptionResult {
  kRun,        // go on with the design's parser and the run
  kFailed,     // a double-dash argument was unknown or malformed; its complaint is printed
  kHelp,       // --help alone: the usage text and the options below it on standard output
  kVersion,    // --version alone: the version and banner lines on standard output
  kListPorts,  // --list-ports alone: the machine's serial ports on standard output
};

// Reads the double-dash options and their environment variables into
// g_runOptions. The design has no double-dash options, so every argument that
// begins with "--" is judged here: an unknown one, or one that lacks its
// value, is refused before anything is opened. Single-dash arguments are the
// design parser's, which ignores those it does not know.
LongOptionResult ParseLongOptions(int argc, const char* const* argv);

// The double-dash options and the environment variables, one line each, on
// standard output: what --help adds under the design's usage text. The man
// page and the bash completion are checked against these lines.
void PrintLongOptionsOnStdout();

}  // namespace qrx
