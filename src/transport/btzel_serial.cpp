#include "transport/btzel_serial.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "platform/clock.h"
#include "platform/console.h"
#include "platform/error_text.h"
#include "transport/h4_packet_types.h"

namespace qrx {
namespace {

constexpr int8_t kOpenPortFailed = -1;
constexpr const char* kDefaultDeviceFormat = "/dev/ttyS%lld";  // COM1 is ttyS0
constexpr std::string_view kComPrefix = "COM";
constexpr std::string_view kDeviceFolder = "/dev/";
constexpr const char* kPortEnvironmentFormat = "QRXBPL_COM%lld";

std::string& DevicePathOverride() {
  static std::string path;
  return path;
}

// Wide enough for any port number minus one: COM-2147483648 is ttyS-2147483649.
std::string FormatWithNumber(const char* format, int64_t number) {
  char text[64];
  std::snprintf(text, sizeof text, format, static_cast<long long>(number));
  return text;
}

// Where the length of an H4 packet sits, by packet type.
struct H4LengthField {
  uint8_t type;
  uint32_t headerLength;
  size_t index;
  bool twoBytes;
};

constexpr std::array<H4LengthField, 4> kH4LengthFields{{
    {kH4Command, 3, 3, false},
    {kH4AclData, 4, 3, true},
    {kH4ScoData, 3, 3, false},
    {kH4Event, 2, 2, false},
}};

int64_t MillisecondsSince(int64_t start) {
  return (PerformanceCounter() - start) * 1000 / PerformanceFrequency();
}

}  // namespace

std::array<uint8_t, kHciCommandMaxLength + 1> BTZELSERIAL::transmitStaging_{kH4Command};

void SetSerialDevicePath(const char* path) {
  DevicePathOverride() = path != nullptr ? path : "";
}

std::string SerialDevicePathForName(const char* portName) {
  if (portName == nullptr || *portName == '\0') return "";
  const std::string_view name(portName);
  if (name.front() == '/') return std::string(name);
  const bool comPort =
      name.size() >= kComPrefix.size() &&
      std::equal(kComPrefix.begin(), kComPrefix.end(), name.begin(),
                 [](char a, char b) { return a == std::toupper(static_cast<unsigned char>(b)); });
  if (comPort || name.find('/') != std::string_view::npos) return "";
  return std::string(kDeviceFolder) + std::string(name);
}

std::string SerialDevicePathForPort(int32_t portNumber) {
  if (!DevicePathOverride().empty()) return DevicePathOverride();
  const std::string variable = FormatWithNumber(kPortEnvironmentFormat, portNumber);
  if (const char* named = std::getenv(variable.c_str()); named != nullptr && *named != '\0') {
    return named;
  }
  return FormatWithNumber(kDefaultDeviceFormat, int64_t{portNumber} - 1);
}

BTZELSERIAL::~BTZELSERIAL() {
  ClosePort();
}

int8_t BTZELSERIAL::OpenPort(int32_t portNumber) {
  portPath_ = SerialDevicePathForPort(portNumber);
  portHandle_ = SerialOpen(portPath_.c_str());
  if (portHandle_ == kNoSerialDevice) {
    PrintSystemErrorText();
    return kOpenPortFailed;
  }
  // From here on a failing step is reported and the open still succeeds, even
  // with the port closed on the way: later reads and writes fail instead.
  SerialLineSettings line;
  if (SerialGetLine(portHandle_, line)) {
    SerialMakeRaw8N1(line, kSerialOpenBaudRate);
  } else {
    StdoutPrintf("Failed to build DCB structure!\n");
    ClosePort();
  }
  if (!SerialApplyLine(portHandle_, line)) {
    StdoutPrintf("Failed to call SetCommState\n");
    ClosePort();
  }
  SetTimeouts(kOpenPortTimeouts.readInterval, kOpenPortTimeouts.readTotalConstant,
              kOpenPortTimeouts.readTotalMultiplier, kOpenPortTimeouts.writeTotalConstant,
              kOpenPortTimeouts.writeTotalMultiplier);
  if (Purge() == 0) StdoutPrintf("Failed purging Serial\n");
  return 0;
}

void BTZELSERIAL::ClosePort() {
  if (portHandle_ != kNoSerialDevice) SerialClose(portHandle_);
  // Unlike a handle value, a descriptor number is handed out again at once:
  // a stale one could name some other open file, so it is forgotten here.
  portHandle_ = kNoSerialDevice;
}

int32_t BTZELSERIAL::WriteHciCommand(const uint8_t* command, uint32_t length) {
  if (length != 0) {
    if (command == nullptr || length > kHciCommandMaxLength) {
      std::fill(transmitStaging_.begin() + 1, transmitStaging_.end(), uint8_t{0});
      return 0;
    }
    std::copy_n(command, length, transmitStaging_.begin() + 1);
  }
  // A blocking descriptor never leaves the write pending: there is nothing to wait for.
  const int64_t written = SerialWrite(portHandle_, transmitStaging_.data(), length + 1);
  return written < 0 ? 0 : static_cast<int32_t>(written);
}

bool BTZELSERIAL::ReadUnderTimeouts(uint8_t* destination, uint32_t count, uint32_t* bytesRead) {
  *bytesRead = 0;
  if (portHandle_ == kNoSerialDevice) {
    errno = EBADF;
    return false;
  }
  const CommTimeouts& t = timeouts_;
  // The COM driver's reading of the words: an all-ones interval with no totals
  // hands over what is waiting; with an all-ones multiplier too, it waits up
  // to the constant for the first byte and returns once anything came.
  // Otherwise constant + multiplier x count bounds the whole read (no bound
  // when both are 0) and the interval bounds each gap after the first byte.
  const bool handOverWaiting =
      t.readInterval == kMaxDword && t.readTotalMultiplier == 0 && t.readTotalConstant == 0;
  const bool firstByteOnly = t.readInterval == kMaxDword && t.readTotalMultiplier == kMaxDword &&
                             t.readTotalConstant != 0 && t.readTotalConstant != kMaxDword;
  int64_t totalMs = -1;
  if (handOverWaiting) {
    totalMs = 0;
  } else if (firstByteOnly) {
    totalMs = t.readTotalConstant;
  } else if (t.readTotalMultiplier != 0 || t.readTotalConstant != 0) {
    totalMs = static_cast<int64_t>(t.readTotalMultiplier) * count + t.readTotalConstant;
  }
  const bool stopOnAnyBytes = t.readInterval == kMaxDword;
  const int64_t intervalMs = stopOnAnyBytes ? 0 : t.readInterval;

  const int64_t start = PerformanceCounter();
  while (*bytesRead < count) {
    int64_t waitMs = totalMs < 0 ? -1 : std::max<int64_t>(0, totalMs - MillisecondsSince(start));
    if (*bytesRead > 0 && intervalMs > 0) {
      waitMs = waitMs < 0 ? intervalMs : std::min(waitMs, intervalMs);
    }
    waitMs = std::min<int64_t>(waitMs, INT32_MAX);
    const int64_t n = SerialReadAvailable(portHandle_, destination + *bytesRead, count - *bytesRead,
                                          static_cast<int32_t>(waitMs));
    if (n < 0) return false;
    if (n == 0) break;
    *bytesRead += static_cast<uint32_t>(n);
    if (stopOnAnyBytes) break;
  }
  return true;
}

int32_t BTZELSERIAL::ReadBytes(uint8_t* destination, uint32_t* bytesRead, void* /*overlapped*/,
                               void* /*waitEvent*/, uint32_t count, uint32_t /*timeoutMs*/) {
  if (destination == nullptr || bytesRead == nullptr) return -1;
  ReadUnderTimeouts(destination, count, bytesRead);
  if (*bytesRead != 0) return 0;
  return -1;
}

int32_t BTZELSERIAL::GetPacketLength(const uint8_t* packet, uint8_t type, uint32_t* headerLength,
                                     uint32_t* paramLength, uint32_t* totalLength) {
  if (packet == nullptr || headerLength == nullptr || paramLength == nullptr ||
      totalLength == nullptr) {
    return -1;
  }
  const auto field = std::find_if(kH4LengthFields.begin(), kH4LengthFields.end(),
                                  [type](const H4LengthField& f) { return f.type == type; });
  if (field == kH4LengthFields.end()) return -1;
  *headerLength = field->headerLength;
  *paramLength = packet[field->index];
  if (field->twoBytes) *paramLength += 256u * packet[field->index + 1];
  *totalLength = *headerLength + 1 + *paramLength;
  return 0;
}

int32_t BTZELSERIAL::SetBaudRate(uint32_t bitsPerSecond) {
  SerialLineSettings line;
  if (!SerialGetLine(portHandle_, line)) StdoutPrintf("Failed to call GetCommState\n");
  SerialSetLineRate(line, bitsPerSecond);
  return SerialApplyLine(portHandle_, line) ? 1 : 0;
}

int32_t BTZELSERIAL::SetRts() {
  return SerialSetRts(portHandle_, true) ? 1 : 0;
}

int32_t BTZELSERIAL::ClearRts() {
  return SerialSetRts(portHandle_, false) ? 1 : 0;
}

int32_t BTZELSERIAL::Purge() {
  return SerialPurge(portHandle_) ? 1 : 0;
}

int32_t BTZELSERIAL::FlushInput() {
  std::array<uint8_t, kFlushInputLength> scratch{};
  uint32_t got = 0;
  const bool read = ReadUnderTimeouts(scratch.data(), kFlushInputLength, &got);
  StdoutFlush();
  return read && got == kFlushInputLength ? 1 : 0;
}

int32_t BTZELSERIAL::ReadRaw(uint8_t* destination, uint32_t count) {
  uint32_t got = 0;
  if (destination == nullptr || !ReadUnderTimeouts(destination, count, &got)) return 0;
  StdoutPrintf("readcom %d\n", static_cast<int>(got));
  return got == count ? 1 : 0;
}

int32_t BTZELSERIAL::WriteRaw(const uint8_t* source, uint32_t count) {
  const int64_t written = source == nullptr ? -1 : SerialWrite(portHandle_, source, count);
  if (written < 0) {
    StdoutPrintf("Failed to call WriteFile\n");
    return 0;
  }
  if (written != count) {
    StdoutPrintf("Failed to write all bytes\n");
    return 0;
  }
  return 1;
}

int32_t BTZELSERIAL::SetTimeouts(uint32_t readInterval, uint32_t readTotalConstant,
                                 uint32_t readTotalMultiplier, uint32_t writeTotalConstant,
                                 uint32_t writeTotalMultiplier) {
  // The words live in this object; reading the current ones fails exactly when
  // the COM driver's would, on a port that is not open.
  if (portHandle_ == kNoSerialDevice) {
    StdoutPrintf("Failed to call SetCommState\n");  // intended: the set-state wording
    ClosePort();
    return 0;
  }
  // Storing them cannot fail, so the apply-failure branch has no counterpart.
  timeouts_.readInterval = readInterval;
  timeouts_.readTotalMultiplier = readTotalMultiplier;
  timeouts_.readTotalConstant = readTotalConstant;
  timeouts_.writeTotalMultiplier = writeTotalMultiplier;
  timeouts_.writeTotalConstant = writeTotalConstant;
  return 1;
}

}  // namespace qrx
