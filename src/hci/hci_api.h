#pragma once

#include <cstdint>

namespace qrx {

// The HCI packet transport of the UART path. Operations in the design's slot
// order (slot 0 is the destructor).
class IBtHciAPI {
 public:
  virtual ~IBtHciAPI() = default;
  virtual int32_t SendCommand(const uint8_t* command, uint32_t length) = 0;
  virtual int32_t ReceivePacket(uint8_t* destination, uint32_t* length, uint32_t timeoutMs) = 0;
  virtual int8_t Open(int32_t portNumber) = 0;
  virtual void Close() = 0;
  virtual void SetLocalBaudRate(uint32_t bitsPerSecond) = 0;
  virtual int32_t SwitchBaudRate(uint8_t rateCode, uint32_t bitsPerSecond, uint8_t manufacturerMode,
                                 uint8_t useCode) = 0;
};

}  // namespace qrx
