#pragma once

// HCI packet bytes the controller model reads and writes. The vendor opcodes
// are the loader's own (hci/vendor_commands.h); what is here is the
// controller's side of the conversation.

#include <cstddef>
#include <cstdint>
#include <vector>

#include "hci/vendor_commands.h"

namespace qrx::sim {

constexpr uint8_t kH4Command = 0x01;
constexpr uint8_t kH4Acl = 0x02;
constexpr uint8_t kH4Event = 0x04;
constexpr size_t kCommandHeaderSize = 4;  // H4 byte, opcode (2), parameter length

constexpr uint8_t kEventCommandComplete = 0x0E;
constexpr uint8_t kEventCommandStatus = 0x0F;
constexpr uint8_t kEventVendor = 0xFF;
constexpr uint8_t kCommandCredits = 1;

// Offsets inside an H4 event packet.
constexpr size_t kEventCodeIndex = 1;
constexpr size_t kEventLengthIndex = 2;
constexpr size_t kCompleteOpcodeIndex = 4;  // low byte; high byte follows
constexpr size_t kCompleteStatusIndex = 6;
constexpr size_t kVendorIdIndex = 3;
constexpr size_t kVendorStatusIndex = 4;

// Vendor event identifiers.
constexpr uint8_t kVendorIdDownloadDone = 0x06;
constexpr uint8_t kVendorIdReplayDone = 0x19;
constexpr uint8_t kVendorIdDebugTrace = 0x2A;  // carries nothing the host needs
// A command the host did not send, answered late: a stray Command Complete.
constexpr uint16_t kOpStrayCommand = 0x0C03;

// Commands whose opcode low byte is this are confirmed by a vendor event too.
constexpr uint8_t kReplayConfirmedOpcodeLow = 0x2F;

// HCI error codes the controller answers with.
constexpr uint8_t kStatusSuccess = 0x00;
constexpr uint8_t kStatusCommandDisallowed = 0x0C;
constexpr uint8_t kStatusUnspecifiedError = 0x1F;

// Reset forms: the first parameter byte tells them apart.
constexpr uint8_t kResetToBootloader = 0x01;
constexpr size_t kResetBootAddressParam = 4;

// Manufacturer mode parameters: enter/exit, then the exit's reset bits.
constexpr uint8_t kManufacturerEnter = 0x01;

// The DDC write that turns off the per-fragment Command Complete.
constexpr uint8_t kDdcCceParams[] = {0x03, 0x86, 0x01, 0x01};

// The "ready for commands" event a controller sends after power-on and after
// a reset: a Command Complete for the no-operation opcode 0x0000.
constexpr uint16_t kOpNoOperation = 0x0000;

std::vector<uint8_t> CommandComplete(uint16_t opcode, uint8_t status,
                                     const std::vector<uint8_t>& returnParams = {});
std::vector<uint8_t> VendorEvent(uint8_t id, uint8_t status);
std::vector<uint8_t> ReadyEvent();

}  // namespace qrx::sim
