#include <windows.h>

#include <cstdio>
#include <cstring>

#include "transport/link_release.h"
#include "transport/serial_device.h"

namespace qrx {

namespace {

// The device namespace reaches every port number the same way, COM10 and up too.
constexpr const char* kPortPathFormat = "\\\\.\\COM%d";
constexpr size_t kPortPathCapacity = 50;
constexpr const char* kLineDefinitionFormat = "%u,n,8,1";

// Serial-port control codes, sent with DeviceIoControl.
constexpr DWORD kIoctlSerialSetRts = 0x001B0030;
constexpr DWORD kIoctlSerialClearRts = 0x001B0034;
constexpr DWORD kIoctlSerialPurge = 0x001B004C;
// Abort pending writes (1) and reads (2), clear the transmit (4) and receive (8) queues.
constexpr DWORD kPurgeEverything = 0x1 | 0x2 | 0x4 | 0x8;

static_assert(sizeof(DCB) <= sizeof(SerialLineSettings::storage));

HANDLE Native(SerialHandle port) {
  return reinterpret_cast<HANDLE>(port);
}

DCB Unpack(const SerialLineSettings& line) {
  DCB settings{};
  std::memcpy(&settings, line.storage.data(), sizeof settings);
  return settings;
}

void Pack(const DCB& settings, SerialLineSettings& line) {
  std::memcpy(line.storage.data(), &settings, sizeof settings);
}

bool Control(SerialHandle port, DWORD code, const void* input, DWORD inputSize) {
  DWORD returned = 0;
  return DeviceIoControl(Native(port), code, const_cast<void*>(input), inputSize, nullptr, 0,
                         &returned, nullptr) != FALSE;
}

}  // namespace

std::string SerialDevicePathForNumber(int32_t portNumber) {
  char path[kPortPathCapacity];
  std::snprintf(path, sizeof path, kPortPathFormat, static_cast<int>(portNumber));
  return path;
}

// Ports have no other names here: every value that is not a path is a COM number.
std::string SerialDevicePathForName(const char* /*portName*/, bool /*scansComNumber*/) {
  return "";
}

// No sharing (that alone keeps every other process out), and no overlapped
// flag: every read and write completes in the call.
SerialHandle SerialOpen(const char* path) {
  const HANDLE port =
      CreateFileA(path, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
  if (port == INVALID_HANDLE_VALUE) return kNoSerialDevice;
  HoldSerialLink(reinterpret_cast<intptr_t>(port));
  return reinterpret_cast<SerialHandle>(port);
}

void SerialClose(SerialHandle port) {
  LetGoSerialLink(port);
  CloseHandle(Native(port));
}

// The COM driver has no such request: an adapter's latency timer is set in
// its driver's properties.
void SerialAskLowLatency(SerialHandle /*port*/) {}

void RestoreSerialDriverAtOnce(intptr_t /*device*/, const SerialDriverState& /*state*/) {}

void ReleaseSerialDeviceAtOnce(intptr_t device) {
  const HANDLE port = reinterpret_cast<HANDLE>(device);
  DCB settings{};
  settings.DCBlength = sizeof settings;
  if (GetCommState(port, &settings) != FALSE) {
    settings.BaudRate = kSerialPowerOnRate;
    SetCommState(port, &settings);
  }
  CloseHandle(port);
}

// A fresh control block (its length set, all else zero) filled from the line
// definition text; the flow-control fields stay off.
bool SerialBuildLine(SerialHandle /*port*/, SerialLineSettings& line, uint32_t bitsPerSecond) {
  char definition[32];
  std::snprintf(definition, sizeof definition, kLineDefinitionFormat, bitsPerSecond);
  DCB settings{};
  settings.DCBlength = sizeof settings;
  const bool built = BuildCommDCBA(definition, &settings) != FALSE;
  Pack(settings, line);
  return built;
}

bool SerialGetLine(SerialHandle port, SerialLineSettings& line) {
  DCB settings = Unpack(line);
  settings.DCBlength = sizeof settings;
  const bool read = GetCommState(Native(port), &settings) != FALSE;
  Pack(settings, line);
  return read;
}

bool SerialApplyLine(SerialHandle port, const SerialLineSettings& line) {
  DCB settings = Unpack(line);
  return SetCommState(Native(port), &settings) != FALSE;
}

void SerialSetLineRate(SerialLineSettings& line, uint32_t bitsPerSecond) {
  DCB settings = Unpack(line);
  settings.BaudRate = bitsPerSecond;
  Pack(settings, line);
}

bool SerialSetRts(SerialHandle port, bool raised) {
  return Control(port, raised ? kIoctlSerialSetRts : kIoctlSerialClearRts, nullptr, 0);
}

bool SerialPurge(SerialHandle port) {
  const DWORD mask = kPurgeEverything;
  return Control(port, kIoctlSerialPurge, &mask, sizeof mask);
}

bool SerialGetTimeouts(SerialHandle port, CommTimeouts& words) {
  COMMTIMEOUTS current{};
  if (!GetCommTimeouts(Native(port), &current)) return false;
  words.readInterval = current.ReadIntervalTimeout;
  words.readTotalMultiplier = current.ReadTotalTimeoutMultiplier;
  words.readTotalConstant = current.ReadTotalTimeoutConstant;
  words.writeTotalMultiplier = current.WriteTotalTimeoutMultiplier;
  words.writeTotalConstant = current.WriteTotalTimeoutConstant;
  return true;
}

bool SerialSetTimeouts(SerialHandle port, const CommTimeouts& words) {
  COMMTIMEOUTS next{};
  next.ReadIntervalTimeout = words.readInterval;
  next.ReadTotalTimeoutMultiplier = words.readTotalMultiplier;
  next.ReadTotalTimeoutConstant = words.readTotalConstant;
  next.WriteTotalTimeoutMultiplier = words.writeTotalMultiplier;
  next.WriteTotalTimeoutConstant = words.writeTotalConstant;
  return SetCommTimeouts(Native(port), &next) != FALSE;
}

int64_t SerialWrite(SerialHandle port, const uint8_t* source, size_t count) {
  DWORD written = 0;
  if (!WriteFile(Native(port), source, static_cast<DWORD>(count), &written, nullptr)) return -1;
  return written;
}

// The COM driver applies the words itself; one read is one ReadFile.
bool SerialRead(SerialHandle port, const CommTimeouts& /*words*/, uint8_t* destination,
                uint32_t count, uint32_t* bytesRead) {
  DWORD got = 0;
  const bool read = ReadFile(Native(port), destination, count, &got, nullptr) != FALSE;
  *bytesRead = got;
  return read;
}

}  // namespace qrx
