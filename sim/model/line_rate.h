#pragma once

// The controller's UART rate: where it starts, what the rate codes of the
// Set Baud Rate command mean to it, and when two ends are close enough in
// rate to understand each other.

#include <array>
#include <cstdint>
#include <optional>

namespace qrx::sim {

constexpr uint32_t kPowerOnRate = 115200;

struct RateCode {
  uint8_t code;
  uint32_t rate;
};

// The controller knows these codes; any other leaves its rate unchanged.
constexpr std::array<RateCode, 11> kRateCodes = {{
    {4, 115200},
    {5, 230400},
    {6, 460800},
    {7, 921600},
    {8, 1843200},
    {9, 3250000},
    {10, 2000000},
    {11, 3000000},
    {12, 3686400},
    {13, 4333333},
    {14, 6500000},
}};

std::optional<uint32_t> RateForCode(uint8_t code);

// A UART receiver copes with a small rate error; beyond this share every
// byte comes out as a framing error.
constexpr double kRateTolerance = 0.02;

bool RatesAgree(uint32_t a, uint32_t b);

}  // namespace qrx::sim
