#pragma once

namespace qrx {

// One whole run from opening the link to closing it, with the options that
// ParseCommandLine left in g_runOptions. true when the controller needed
// nothing more or the download completed.
bool RunDownload();

}  // namespace qrx
