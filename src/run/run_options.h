#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace qrx {

// Values of -i.
constexpr int32_t kInterfaceUart = 2;
constexpr int32_t kInterfaceTcp = 3;
// Values of -h.
constexpr int32_t kHostInterfaceFpga = 1;
constexpr int32_t kHostInterfaceAsic = 2;

constexpr uint8_t kDefaultBaudRateCode = 4;
constexpr uint32_t kPowerOnBaudRate = 115200;
constexpr size_t kServerAddressCapacity = 1024;

// Whether the in-place progress line is drawn: on a terminal only, or as forced.
enum class ProgressMode : uint8_t { kAuto, kOn, kOff };

// The run's options, filled once by ParseCommandLine and read by the rest of
// the run. Field order is the design's.
struct RunOptions {
  int32_t interface = 0;
  int32_t hostInterface = kHostInterfaceFpga;
  const char* portName = nullptr;  // borrowed from the argument list
  std::array<char, kServerAddressCapacity> serverAddress{};
  bool bootAddressGiven = false;
  int32_t readTimeoutMs = 1000;  // parsed and kept; nothing reads it, as designed
  bool skipReset = false;
  bool downloadBdData = false;
  bool changeBaudRate = false;
  uint8_t baudRateCode = kDefaultBaudRateCode;
  uint32_t baudRate = 0;
  bool baudRateUnlisted = false;
  bool verbose = false;
  const char* firmwarePath = nullptr;  // borrowed from the argument list
  bool noCommandComplete = false;

  // Set only through double-dash options and environment variables, which the
  // design's command lines never carry: those lines keep these defaults.
  bool tcpNoDelay = false;                      // --tcp-nodelay, QRXBPL_TCP_NODELAY=1
  const char* firmwareFile = nullptr;           // --firmware FILE
  ProgressMode progress = ProgressMode::kAuto;  // --progress, --no-progress
  const char* btsnoopPath = nullptr;            // --btsnoop FILE
  const char* reportPath = nullptr;             // --report FILE
  bool noLowLatency = false;                    // --no-low-latency
  uint32_t tcpReadTimeoutMs = 0;                // --tcp-timeout S, QRXBPL_TCP_TIMEOUT; 0: none
};

extern RunOptions g_runOptions;

}  // namespace qrx
