#include <gtest/gtest.h>

#include <array>

#include "platform/byte_order.h"
#include "platform/clock.h"
#include "platform/console.h"

namespace qrx {
namespace {

TEST(ConsoleCapture, KeepsTheTwoStreamsApartAndInOrder) {
  ConsoleCapture capture;
  ConsolePrintf("CMD: %-36s", "Read");
  StdoutPrintf("readcom %d\n", 3);
  ConsolePrintf("[OK]\n");
  EXPECT_EQ(capture.Err(), "CMD: Read                                [OK]\n");
  EXPECT_EQ(capture.Out(), "readcom 3\n");
}

TEST(ByteOrder, RoundTripsLittleEndianFields) {
  std::array<uint8_t, 8> bytes{};
  WriteLe32(bytes, 1, 0x002DC6C0);
  WriteLe16(bytes, 5, 0xFC09);
  EXPECT_EQ(bytes, (std::array<uint8_t, 8>{0x00, 0xC0, 0xC6, 0x2D, 0x00, 0x09, 0xFC, 0x00}));
  EXPECT_EQ(ReadLe32(bytes, 1), 0x002DC6C0u);
  EXPECT_EQ(ReadLe16(bytes, 5), 0xFC09);
}

TEST(Clock, CounterAdvancesAcrossASleepAtTheStatedFrequency) {
  const int64_t before = PerformanceCounter();
  SleepMilliseconds(20);
  const double seconds =
      static_cast<double>(PerformanceCounter() - before) / static_cast<double>(PerformanceFrequency());
  EXPECT_GE(seconds, 0.019);
  EXPECT_LT(seconds, 5.0);
}

}  // namespace
}  // namespace qrx
