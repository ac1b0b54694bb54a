#pragma once

namespace qrx {

// A --firmware file is checked before the link opens, so that a file that
// cannot be right costs the controller nothing: it must open as a regular
// file, not be empty or all zero bytes, have a type (its name, or -fw), be no
// shorter than the smallest whole image of that type, and walk as the
// download would walk it. Otherwise one line names the file and what is
// wrong, and the answer is false. Without --firmware there is nothing to check:
// a searched file keeps the designed path.
bool CheckNamedFirmwareFile();

}  // namespace qrx
