#pragma once

#include <array>
#include <cstdint>
#include <memory>

#include "hci/hci_api.h"
#include "transport/btzel_serial.h"

namespace qrx {

constexpr size_t kReceiveBufferSize = 272;
// Largest packet ReceivePacket copies out; the caller's buffer holds at least this.
constexpr size_t kReceiveCopyCapacity = 259;

// HCI packets over the owned serial connection: framing on receive, the
// controller's manufacturer mode and the rate change of both ends.
class BTZELTransport final : public IBtHciAPI {
 public:
  // Kinds 2 (UART) and 3 (TCP/IP) get a serial connection; any other none.
  explicit BTZELTransport(int32_t interfaceKind);
  ~BTZELTransport() override;
  BTZELTransport(const BTZELTransport&) = delete;
  BTZELTransport& operator=(const BTZELTransport&) = delete;

  int32_t SendCommand(const uint8_t* command, uint32_t length) override;
  int32_t ReceivePacket(uint8_t* destination, uint32_t* length, uint32_t timeoutMs) override;
  int8_t Open(int32_t portNumber) override;
  void Close() override;
  void SetLocalBaudRate(uint32_t bitsPerSecond) override;
  // Returns the result of the last purge.
  int32_t SwitchBaudRate(uint8_t rateCode, uint32_t bitsPerSecond, uint8_t manufacturerMode,
                         uint8_t useCode) override;

  int32_t InterfaceKind() const { return interfaceKind_; }

 private:
  // Reads and checks the 7-byte answer to a manufacturer-mode command.
  void CheckManufacturerModeAnswer(std::array<uint8_t, kReceiveCopyCapacity>& answer,
                                   const char* which);

  uint8_t open_ = 0;
  int32_t interfaceKind_ = 0;
  IBluetoothConnection* connection_ = nullptr;
  int32_t fillCount_ = 0;
  int32_t ownsConnection_ = 0;
  std::array<uint8_t, kReceiveBufferSize> receiveBuffer_{};
  int32_t reservedMinusOne_ = -1;  // set and never read (intended)
  void* waitEvent_ = nullptr;
  int32_t reservedZero_ = 0;  // set and never read (intended)
  // The connection is created here and deleted as what it is.
  std::unique_ptr<BTZELSERIAL> serial_;
};

}  // namespace qrx
