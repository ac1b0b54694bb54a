#pragma once

#include <string>

namespace qrx {

// Maps a path in the library's Windows form onto this host, at the point
// where a file is opened:
//   - a leading "\??\" is dropped;
//   - a drive "X:" becomes the directory in QRXBPL_DRIVE_X (upper-case
//     letter), "/" when that is unset or empty;
//   - a rooted path without a drive is on drive C;
//   - every backslash becomes "/", and runs of "/" collapse to one;
//   - anything else (".\name") stays relative to the current directory.
std::string HostPathFromWindows(const wchar_t* path);

}  // namespace qrx
