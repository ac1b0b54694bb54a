#pragma once

#include <cstddef>
#include <cstdint>

namespace qrx {

// Client of the Virtual Platform Server: one connection per process, module
// state only (no class), as the run uses it.
constexpr const char* kDefaultServerPort = "12360";

void SetServerAddress(const char* source, size_t count);
// Null portText: the default port. With the run's --tcp-nodelay the socket
// sends small writes at once (TCP_NODELAY) once connected; without it the
// socket keeps the system's defaults.
bool ConnectToServer(const char* portText);
// Payload is the command with one spare byte (length n + 1); 0x01 goes in front.
// The spare byte is never read, so a command of n bytes may be passed as it
// stands with length n + 1.
// Bytes sent, 0 when the send fails, -1 when the payload is absent or too long.
int32_t SendSocketCmd(const uint8_t* payload, uint32_t length);
bool ReadSocketEvent(uint8_t* destination, uint32_t capacity, uint32_t* receivedLength,
                     uint32_t timeoutMs);
void CloseServerConnection();

// Not called by the run itself; the receive above reuses the first and the last.
// The H4 packet length rule for a type (1 command, 2 ACL, 3 SCO, 4 event):
// header length after the type byte, parameter length, whole packet length.
// false for a null argument or any other type.
bool GetTcpPacketLength(const uint8_t* packet, uint8_t type, uint32_t* headerLength,
                        uint32_t* paramLength, uint32_t* totalLength);
// One server message without reassembly: its bytes after the 4-byte prefix.
bool ReceiveSocketMessage(uint8_t* destination, uint32_t capacity, uint32_t* receivedLength,
                          uint32_t timeoutMs);
// Sends up to 24 bytes as they are: the count sent, or -1.
int32_t SendSocketRaw(const uint8_t* bytes, uint32_t length);

}  // namespace qrx
