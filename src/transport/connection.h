#pragma once

#include <cstdint>

namespace qrx {

// The byte-level connection under the HCI transport. Operations in the
// design's slot order. Pointer + length arguments keep the design's
// null-argument behaviour.
class IBluetoothConnection {
 public:
  virtual int8_t OpenPort(int32_t portNumber) = 0;  // 0 opened, -1 failed
  virtual void ClosePort() = 0;
  virtual int32_t WriteHciCommand(const uint8_t* command, uint32_t length) = 0;
  virtual int32_t ReadBytes(uint8_t* destination, uint32_t* bytesRead, void* overlapped,
                            void* waitEvent, uint32_t count, uint32_t timeoutMs) = 0;
  virtual int32_t GetPacketLength(const uint8_t* packet, uint8_t type, uint32_t* headerLength,
                                  uint32_t* paramLength, uint32_t* totalLength) = 0;
  virtual int32_t SetBaudRate(uint32_t bitsPerSecond) = 0;
  virtual int32_t SetRts() = 0;
  virtual int32_t ClearRts() = 0;
  virtual int32_t Purge() = 0;
  virtual int32_t FlushInput() = 0;
  virtual int32_t ReadRaw(uint8_t* destination, uint32_t count) = 0;
  virtual int32_t WriteRaw(const uint8_t* source, uint32_t count) = 0;
  virtual int32_t SetTimeouts(uint32_t readInterval, uint32_t readTotalConstant,
                              uint32_t readTotalMultiplier, uint32_t writeTotalConstant,
                              uint32_t writeTotalMultiplier) = 0;

 protected:
  // Owners delete the concrete object they created, never through this interface.
  ~IBluetoothConnection() = default;
};

}  // namespace qrx
