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
// A path that begins with "/" or "./" is a host path already (the library's
// own paths never do) and comes back byte for byte as WideFromHostPath made it.
std::string HostPathFromWindows(const wchar_t* path);

// A host path the operator named, carried through the library's wide paths:
// one character per byte, with "./" in front of a relative path.
std::wstring WideFromHostPath(const char* hostPath);

}  // namespace qrx
