#pragma once

#include <cstddef>
#include <cstdint>

namespace qrx {

// Client of the Virtual Platform Server: one connection per process, module
// state only (no class), as the run uses it.
constexpr const char* kDefaultServerPort = "12360";

void SetServerAddress(const char* source, size_t count);
bool ConnectToServer(const char* portText);  // null: the default port
// Payload is the command with one spare byte (length n + 1); 0x01 goes in front.
// Bytes sent, 0 when the send fails, -1 when the payload is absent or too long.
int32_t SendSocketCmd(const uint8_t* payload, uint32_t length);
bool ReadSocketEvent(uint8_t* destination, uint32_t capacity, uint32_t* receivedLength,
                     uint32_t timeoutMs);
void CloseServerConnection();

}  // namespace qrx
