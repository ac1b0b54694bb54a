#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

namespace qrx {

// The serial-device calls of the system, one thin wrapper each, with one
// backend per system (serial_device_posix.cpp, serial_device_win32.cpp).
// A failing call leaves its reason where PrintSystemErrorText finds it.

using SerialHandle = intptr_t;
constexpr SerialHandle kNoSerialDevice = -1;

// The five read/write time-out words of a COM port, in the order the COM
// driver keeps them. All in milliseconds.
struct CommTimeouts {
  uint32_t readInterval = 0;
  uint32_t readTotalMultiplier = 0;
  uint32_t readTotalConstant = 0;
  uint32_t writeTotalMultiplier = 0;
  uint32_t writeTotalConstant = 0;
  bool operator==(const CommTimeouts&) const = default;
};

constexpr uint32_t kMaxDword = 0xFFFFFFFF;

// Line settings as the device holds them; only the backend looks inside.
struct SerialLineSettings {
  alignas(8) std::array<unsigned char, 64> storage{};
};

// The device that COM port n names on this system.
std::string SerialDevicePathForNumber(int32_t portNumber);

// The device a -p value names by itself, on systems whose devices have names
// of their own. POSIX reads, in this order: a value beginning with '/' is a
// path as it stands; a value from which a COM number is scanned
// (scansComNumber: "COM3", "xyz7") is mapped by that number and gets ""; "./x"
// and "../x" are relative paths; anything else is a name under /dev
// ("ttyUSB0", "pts/1", "serial/by-id/..."). Empty for every value mapped by
// its number.
std::string SerialDevicePathForName(const char* portName, bool scansComNumber);

// Read/write, never shared with another process (root included), blocking
// (no overlapped I/O). kNoSerialDevice when the device cannot be opened or
// another process holds it.
SerialHandle SerialOpen(const char* path);
// Gives up exclusivity before closing, so the next run opens the device,
// and puts back the driver settings SerialAskLowLatency changed.
void SerialClose(SerialHandle port);

// Asks the driver to hand received bytes over at once instead of holding
// them for a timer (a USB serial adapter's latency timer). Its own settings
// are kept with the held link, for SerialClose and the signal path to put
// back. Where the driver has no such setting (a pseudo-terminal, Windows'
// COM driver), nothing happens and nothing is said.
void SerialAskLowLatency(SerialHandle port);

// Fresh line settings for the open: raw bytes, 8 data bits, no parity, 1 stop
// bit, no flow control of either kind, at the given rate. False when they
// cannot be built.
bool SerialBuildLine(SerialHandle port, SerialLineSettings& line, uint32_t bitsPerSecond);
bool SerialGetLine(SerialHandle port, SerialLineSettings& line);
bool SerialApplyLine(SerialHandle port, const SerialLineSettings& line);
// Any rate in bit/s the device takes; nothing else changes.
void SerialSetLineRate(SerialLineSettings& line, uint32_t bitsPerSecond);

bool SerialSetRts(SerialHandle port, bool raised);
// Drops everything queued in both directions.
bool SerialPurge(SerialHandle port);

// The port's time-out words. Where the device keeps none, the caller's words
// are the port's: the get only checks that the port is open and the set
// stores nothing.
bool SerialGetTimeouts(SerialHandle port, CommTimeouts& words);
bool SerialSetTimeouts(SerialHandle port, const CommTimeouts& words);

// Blocks until every byte is taken. Bytes written; -1 when the first write fails.
int64_t SerialWrite(SerialHandle port, const uint8_t* source, size_t count);

// One read of up to count bytes, as the COM driver paces it under the words
// last set: false when the device call failed.
bool SerialRead(SerialHandle port, const CommTimeouts& words, uint8_t* destination, uint32_t count,
                uint32_t* bytesRead);

}  // namespace qrx
