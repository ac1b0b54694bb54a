#include "transport/btzel_serial.h"

#include <algorithm>

#include "platform/btsnoop.h"
#include "platform/console.h"
#include "platform/error_text.h"
#include "run/run_options.h"
#include "transport/h4_packet_types.h"
#include "transport/port_failure.h"

namespace qrx {
namespace {

constexpr int8_t kOpenPortFailed = -1;

std::string& DevicePathOverride() {
  static std::string path;
  return path;
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

}  // namespace

std::array<uint8_t, kHciCommandMaxLength + 1> BTZELSERIAL::transmitStaging_{kH4Command};

void SetSerialDevicePath(const char* path) {
  DevicePathOverride() = path != nullptr ? path : "";
}

std::string SerialDevicePathForPort(int32_t portNumber) {
  if (!DevicePathOverride().empty()) return DevicePathOverride();
  return SerialDevicePathForNumber(portNumber);
}

BTZELSERIAL::~BTZELSERIAL() {
  ClosePort();
}

int8_t BTZELSERIAL::OpenPort(int32_t portNumber) {
  portPath_ = SerialDevicePathForPort(portNumber);
  portHandle_ = SerialOpen(portPath_.c_str());
  if (portHandle_ == kNoSerialDevice) {
    const int error = LastPlatformError();
    PrintSystemErrorText();
    NotePortFailure(portPath_, error);
    return kOpenPortFailed;
  }
  if (!g_runOptions.noLowLatency) SerialAskLowLatency(portHandle_);
  // From here on a failing step is reported and the open still succeeds, even
  // with the port closed on the way: later reads and writes fail instead.
  SerialLineSettings line;
  if (!SerialBuildLine(portHandle_, line, kSerialOpenBaudRate)) {
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
  // A descriptor number is handed out again at once (and a handle value may
  // be): a stale one could name some other open file, so it is forgotten here.
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
  if (written > 0) {
    BtsnoopRecord(BtsnoopDirection::kSent,
                  std::span(transmitStaging_.data(), static_cast<size_t>(written)));
  }
  return written < 0 ? 0 : static_cast<int32_t>(written);
}

int32_t BTZELSERIAL::ReadBytes(uint8_t* destination, uint32_t* bytesRead, void* /*overlapped*/,
                               void* /*waitEvent*/, uint32_t count, uint32_t /*timeoutMs*/) {
  if (destination == nullptr || bytesRead == nullptr) return -1;
  SerialRead(portHandle_, timeouts_, destination, count, bytesRead);
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
  const bool read = SerialRead(portHandle_, timeouts_, scratch.data(), kFlushInputLength, &got);
  StdoutFlush();
  return read && got == kFlushInputLength ? 1 : 0;
}

int32_t BTZELSERIAL::ReadRaw(uint8_t* destination, uint32_t count) {
  uint32_t got = 0;
  if (destination == nullptr || !SerialRead(portHandle_, timeouts_, destination, count, &got)) {
    return 0;
  }
  StdoutPrintf("readcom %d\n", static_cast<int>(got));
  return got == count ? 1 : 0;
}

int32_t BTZELSERIAL::WriteRaw(const uint8_t* source, uint32_t count) {
  const int64_t written = source == nullptr ? -1 : SerialWrite(portHandle_, source, count);
  if (written > 0) {
    BtsnoopRecord(BtsnoopDirection::kSent, std::span(source, static_cast<size_t>(written)));
  }
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
  CommTimeouts words = timeouts_;
  if (!SerialGetTimeouts(portHandle_, words)) {
    StdoutPrintf("Failed to call SetCommState\n");  // intended: the set-state wording
    ClosePort();
    return 0;
  }
  words.readInterval = readInterval;
  words.readTotalMultiplier = readTotalMultiplier;
  words.readTotalConstant = readTotalConstant;
  words.writeTotalMultiplier = writeTotalMultiplier;
  words.writeTotalConstant = writeTotalConstant;
  timeouts_ = words;
  if (!SerialSetTimeouts(portHandle_, words)) {
    PrintSystemErrorText();
    ClosePort();
  }
  return 1;
}

}  // namespace qrx
