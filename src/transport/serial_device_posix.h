#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace qrx {

// The serial-device calls of this platform, one thin wrapper each. A failing
// call leaves its reason in errno, where PrintSystemErrorText finds it.

constexpr int kNoSerialDevice = -1;

// Line settings as the device holds them; only this file looks inside.
struct SerialLineSettings {
  alignas(8) std::array<unsigned char, 64> storage{};
};

// Read/write, never the controlling terminal, blocking, exclusive (TIOCEXCL
// and flock, so root is refused too). kNoSerialDevice when the device cannot
// be opened or another process holds it.
int SerialOpen(const char* path);
// Clears exclusivity and drops the lock before closing, so the next run opens it.
void SerialClose(int fd);

bool SerialGetLine(int fd, SerialLineSettings& line);
bool SerialApplyLine(int fd, const SerialLineSettings& line);
// Raw bytes, 8 data bits, no parity, 1 stop bit, receiver on, modem lines
// ignored, no flow control of either kind.
void SerialMakeRaw8N1(SerialLineSettings& line, uint32_t bitsPerSecond);
// Any rate in bit/s, standard or not; nothing else changes.
void SerialSetLineRate(SerialLineSettings& line, uint32_t bitsPerSecond);

bool SerialSetRts(int fd, bool raised);
// Drops everything queued in both directions.
bool SerialPurge(int fd);

// Blocks until every byte is taken. Bytes written; -1 when the first write fails.
int64_t SerialWrite(int fd, const uint8_t* source, size_t count);

// Waits up to waitMs (negative: without limit) for input, then takes what is
// waiting, at most count bytes. 0 when the wait ran out; -1 on an error or
// when the far end has gone.
int64_t SerialReadAvailable(int fd, uint8_t* destination, size_t count, int32_t waitMs);

}  // namespace qrx
