#include "hci/hci_exchange.h"

#include <array>
#include <cstdio>
#include <cstring>
#include <limits>
#include <memory>
#include <new>

#include "hci/hci_api.h"
#include "platform/trace.h"
#include "run/run_options.h"
#include "transport/tcp_client.h"

namespace qrx {

namespace {

// Three characters a byte: a 259-byte packet needs 777 of them.
constexpr size_t kHexDumpTextSize = 1024;
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
  // One byte more than the command is allocated and handed on: intended, the
  // client frames the type byte in front and the spare byte is never sent.
  const uint32_t padded = length + 1;
  std::unique_ptr<uint8_t[]> buffer(new (std::nothrow) uint8_t[padded]);
  if (!buffer) {
    TraceRecord(kTraceLevelError, "QRXBPLSendCommand", "cannot allocate %u bytes", padded);
    return -1;
  }
  std::memset(buffer.get(), 0, padded);
  std::memcpy(buffer.get(), command, length);
  return SendSocketCmd(buffer.get(), padded);
}

}  // namespace

void SetActiveTransport(IBtHciAPI* transport) {
  g_activeTransport = transport;
}

IBtHciAPI* ActiveTransport() {
  return g_activeTransport;
}

void HexDumpTrace(const char* tag, const uint8_t* bytes, uint32_t length) {
  std::array<char, kHexDumpTextSize> text{};
  size_t used = 0;
  for (uint32_t i = 0; bytes != nullptr && i < length; ++i) {
    const size_t room = text.size() - used;
    const int written = std::snprintf(text.data() + used, room, "%02X ", bytes[i]);
    if (written < 0 || static_cast<size_t>(written) >= room) {
      // Overflow ends the dump; the packet itself is unaffected.
      text[used] = '\0';
      break;
    }
    used += static_cast<size_t>(written);
  }
  if (TraceEnabled(kTraceLevelVerbose)) {
    TraceRecord(kTraceLevelVerbose, tag != nullptr ? tag : "", "%s", text.data());
  }
}

int32_t QRXBPLSendCommand(const uint8_t* command, uint32_t length) {
  HexDumpTrace(kCommandTag, command, length);
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
  HexDumpTrace(kEventTag, event, length != nullptr ? *length : 0);
  return 0;
}

int32_t ReceiveEventDirect(uint8_t* event, uint32_t* length, uint32_t timeoutMs) {
  if (OverTcp()) {
    if (!ReadSocketEvent(event, static_cast<uint32_t>(kEventBufferSize), length, timeoutMs)) {
      return -1;
    }
    HexDumpTrace(kEventTag, event, length != nullptr ? *length : 0);
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
  if (result == 0) HexDumpTrace(kEventTag, event, length != nullptr ? *length : 0);
  return 0;
}

}  // namespace qrx
