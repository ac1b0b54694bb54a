#pragma once

namespace qrx {

// The number of the last failed platform call (errno here).
int LastPlatformError();

// Prints the text of the last platform error, followed by a line end, on
// standard error: what an operator sees when a device or file will not open.
void PrintSystemErrorText();

// The system's text for an error number ("No such file or directory").
const char* SystemErrorText(int error);

}  // namespace qrx
