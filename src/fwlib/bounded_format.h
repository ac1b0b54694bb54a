#pragma once

#include <cstddef>

namespace qrx {

// Every path and file name of the library lives in a buffer of this many
// wide characters, terminator included.
constexpr size_t kFwPathChars = 260;

// printf-style formatting into a wide buffer of capacity characters
// (terminator included). Answers the characters written, or a negative value
// when the result does not fit; a result that does not fit leaves an empty
// string, never a truncated one.
int FwFormatBounded(wchar_t* output, size_t capacity, const wchar_t* format, ...);

}  // namespace qrx
