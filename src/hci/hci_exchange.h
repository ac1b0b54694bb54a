#pragma once

#include <cstddef>
#include <cstdint>

#include "transport/h4_packet_types.h"

namespace qrx {

class IBtHciAPI;

// Event codes and event-buffer positions (byte 0 is the H4 type).
constexpr uint8_t kEventCommandComplete = 0x0E;
constexpr uint8_t kEventVendor = 0xFF;
constexpr size_t kEventCodeIndex = 1;
constexpr size_t kEventParamLengthIndex = 2;
constexpr size_t kEventFirstParamIndex = 3;
constexpr size_t kEventOpcodeLowIndex = 4;
constexpr size_t kEventOpcodeHighIndex = 5;
constexpr size_t kEventStatusIndex = 6;

constexpr size_t kEventBufferSize = 259;
// Every event read of the run asks for this, whatever -t says.
constexpr uint32_t kEventTimeoutMs = 3000;

// The UART transport of the run, owned by the run driver; null over TCP.
void SetActiveTransport(IBtHciAPI* transport);
IBtHciAPI* ActiveTransport();

// Sends one HCI command (opcode, length, parameters; no H4 byte) over the link
// that -i chose. -1 is failure; any other value success.
int32_t QRXBPLSendCommand(const uint8_t* command, uint32_t length);

// Receives one packet into an event buffer (H4 byte first). 0 success, -1
// failure; over UART another non-zero transport result is passed back.
int32_t QRXBPLRecvCommand(uint8_t* event, uint32_t capacity, uint32_t* length, uint32_t timeoutMs);

// Reads one event with the link's own receive, as the version read and the
// download loops do: over UART a transport result of 0 is traced and -1 is
// failure, any other result counts as received but is not traced; over TCP
// false is failure. 0 success, -1 failure.
int32_t ReceiveEventDirect(uint8_t* event, uint32_t* length, uint32_t timeoutMs);

// One trace record of a packet as "%02X " per byte; never on the console.
// Reads at most capacity bytes, whatever length the packet claims; formats
// nothing unless the record will be written.
void HexDumpTrace(const char* tag, const uint8_t* bytes, uint32_t length, uint32_t capacity);

}  // namespace qrx
