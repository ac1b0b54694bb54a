#pragma once

#include <string>

namespace qrx {

// One whole run from opening the link to closing it, with the options that
// ParseCommandLine left in g_runOptions. true when the controller needed
// nothing more or the download completed.
bool RunDownload();

// What the run's link is, for the record: the serial device it opens, or the
// server's host:port. Empty before the command line was read.
std::string LinkName();

}  // namespace qrx
