#pragma once

#include <cstdint>
#include <optional>

namespace qrx {

// Signed decimal: leading white space, optional sign, digits up to the first
// non-digit; 0 when there are none or the text is absent. Values beyond the
// 32-bit range saturate instead of wrapping.
int32_t ParseDecimal(const char* text);

// The same reading, but absent (as a "%d" scan that matched nothing) when no
// digit follows the blanks and the sign.
std::optional<int32_t> ScanDecimal(const char* text);

// Unsigned 32-bit number whose base follows its prefix: 0x/0X hexadecimal, a
// leading 0 octal, else decimal. Conversion stops at the first character that
// does not fit the base; a leading minus negates modulo 2^32; a value beyond
// 32 bits gives 0xFFFFFFFF.
uint32_t ParseUnsignedAutoBase(const char* text);

}  // namespace qrx
