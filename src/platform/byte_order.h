#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace qrx {

// Every multi-byte field on the wire and in the files is little-endian; all
// reads and writes of such fields go through these four.
// The caller guarantees that offset + width lies inside the span.

inline uint16_t ReadLe16(std::span<const uint8_t> bytes, size_t offset) {
  return static_cast<uint16_t>(bytes[offset] | (bytes[offset + 1] << 8));
}

inline uint32_t ReadLe32(std::span<const uint8_t> bytes, size_t offset) {
  return static_cast<uint32_t>(bytes[offset]) | (static_cast<uint32_t>(bytes[offset + 1]) << 8) |
         (static_cast<uint32_t>(bytes[offset + 2]) << 16) |
         (static_cast<uint32_t>(bytes[offset + 3]) << 24);
}

inline void WriteLe16(std::span<uint8_t> bytes, size_t offset, uint16_t value) {
  bytes[offset] = static_cast<uint8_t>(value);
  bytes[offset + 1] = static_cast<uint8_t>(value >> 8);
}

inline void WriteLe32(std::span<uint8_t> bytes, size_t offset, uint32_t value) {
  for (size_t i = 0; i < 4; ++i) bytes[offset + i] = static_cast<uint8_t>(value >> (8 * i));
}

// The capture files that other tools read (btsnoop) are big-endian.
inline void WriteBe32(std::span<uint8_t> bytes, size_t offset, uint32_t value) {
  for (size_t i = 0; i < 4; ++i) bytes[offset + i] = static_cast<uint8_t>(value >> (24 - 8 * i));
}

inline void WriteBe64(std::span<uint8_t> bytes, size_t offset, uint64_t value) {
  for (size_t i = 0; i < 8; ++i) bytes[offset + i] = static_cast<uint8_t>(value >> (56 - 8 * i));
}

}  // namespace qrx
