#include "fwlib/bounded_format.h"

#include <cstdarg>
#include <cwchar>

namespace qrx {

int FwFormatBounded(wchar_t* output, size_t capacity, const wchar_t* format, ...) {
  if (output == nullptr || capacity == 0 || format == nullptr) return -1;
  va_list args;
  va_start(args, format);
  const int written = std::vswprintf(output, capacity, format, args);
  va_end(args);
  if (written < 0) output[0] = L'\0';
  return written;
}

}  // namespace qrx
