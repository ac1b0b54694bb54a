#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>

namespace qrx {

// SHA-256, enough to fingerprint a firmware file in a run report.
class Sha256 {
 public:
  using Digest = std::array<uint8_t, 32>;

  Sha256();
  void Update(std::span<const uint8_t> bytes);
  Digest Finish();

 private:
  void Block(const uint8_t* block);

  std::array<uint32_t, 8> state_;
  std::array<uint8_t, 64> pending_{};
  size_t pendingCount_ = 0;
  uint64_t totalBytes_ = 0;
};

// Lower-case hex of a digest (or of any bytes).
std::string HexText(std::span<const uint8_t> bytes);

}  // namespace qrx
