#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "transport/connection.h"
#include "transport/link_release.h"
#include "transport/serial_device_posix.h"

namespace qrx {

// The five read/write time-out words of a COM port, in the order the COM
// driver keeps them. All in milliseconds. Only the read words shape I/O here:
// a write blocks until the device has taken every byte.
struct CommTimeouts {
  uint32_t readInterval = 0;
  uint32_t readTotalMultiplier = 0;
  uint32_t readTotalConstant = 0;
  uint32_t writeTotalMultiplier = 0;
  uint32_t writeTotalConstant = 0;
  bool operator==(const CommTimeouts&) const = default;
};

constexpr uint32_t kMaxDword = 0xFFFFFFFF;
constexpr uint32_t kHciCommandMaxLength = 2048;
constexpr uint32_t kFlushInputLength = 259;
constexpr uint32_t kSerialOpenBaudRate = kSerialPowerOnRate;
// After OpenPort: hand over what is waiting, else wait up to a second for the first byte.
constexpr CommTimeouts kOpenPortTimeouts{kMaxDword, kMaxDword, 1000, 0, 0};

// A device path that OpenPort opens as it stands, whatever COM number it is
// given (the run's -p value when it begins with '/'). Null or "" forgets it.
void SetSerialDevicePath(const char* path);

// The device a -p value names by itself: a value beginning with '/' as it
// stands; a value with no '/' that does not begin with COM (any case) under
// /dev ("ttyUSB0" is /dev/ttyUSB0). Empty for every other value, COMn among
// them, which OpenPort maps by its number.
std::string SerialDevicePathForName(const char* portName);

// The device OpenPort(n) opens: the path set above; else $QRXBPL_COM<n>; else /dev/ttyS<n-1>.
std::string SerialDevicePathForPort(int32_t portNumber);

// A COM port (UART) to the controller.
class BTZELSERIAL final : public IBluetoothConnection {
 public:
  BTZELSERIAL() = default;
  ~BTZELSERIAL();
  BTZELSERIAL(const BTZELSERIAL&) = delete;
  BTZELSERIAL& operator=(const BTZELSERIAL&) = delete;

  int8_t OpenPort(int32_t portNumber) override;
  void ClosePort() override;
  int32_t WriteHciCommand(const uint8_t* command, uint32_t length) override;
  // 0 when at least one byte came, -1 when none did or an argument is null.
  // The time-out words decide how long it waits, never timeoutMs: no read is
  // ever left pending, so 258 (wait timed out) does not occur here.
  int32_t ReadBytes(uint8_t* destination, uint32_t* bytesRead, void* overlapped, void* waitEvent,
                    uint32_t count, uint32_t timeoutMs) override;
  int32_t GetPacketLength(const uint8_t* packet, uint8_t type, uint32_t* headerLength,
                          uint32_t* paramLength, uint32_t* totalLength) override;
  int32_t SetBaudRate(uint32_t bitsPerSecond) override;
  int32_t SetRts() override;
  int32_t ClearRts() override;
  int32_t Purge() override;
  int32_t FlushInput() override;
  int32_t ReadRaw(uint8_t* destination, uint32_t count) override;
  int32_t WriteRaw(const uint8_t* source, uint32_t count) override;
  int32_t SetTimeouts(uint32_t readInterval, uint32_t readTotalConstant,
                      uint32_t readTotalMultiplier, uint32_t writeTotalConstant,
                      uint32_t writeTotalMultiplier) override;

  const std::string& PortPath() const { return portPath_; }
  const CommTimeouts& Timeouts() const { return timeouts_; }

 private:
  // One read under the time-out words; false when the device call failed.
  bool ReadUnderTimeouts(uint8_t* destination, uint32_t count, uint32_t* bytesRead);

  int portHandle_ = kNoSerialDevice;
  std::string portPath_;
  // The port is never opened for overlapped I/O, so no wait event is kept.
  CommTimeouts timeouts_{};

  // H4 command type byte, then the command. Shared by every port, unlocked.
  static std::array<uint8_t, kHciCommandMaxLength + 1> transmitStaging_;
};

}  // namespace qrx
