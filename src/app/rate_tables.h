#pragma once

#include <cstdint>

namespace qrx {

// Controller rate code and the "rate not in the ASIC table" mark of a -r value.
struct RateMapping {
  uint8_t code;
  bool unlisted;
};

// Maps a rate by the table of the host interface (1 FPGA, any other value
// ASIC). Some rows leave the code or the mark as they were, so the current
// values go in and the updated ones come out.
RateMapping MapBaudRate(int32_t hostInterface, uint32_t rate, RateMapping current);

}  // namespace qrx
