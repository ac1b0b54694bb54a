#pragma once

#include <cstddef>
#include <cstdint>

#include "fwlib/fwlib_context.h"
#include "fwlib/fwlib_status.h"

namespace qrx {

// Secure Send: the vendor command that carries every piece of a signed image.
constexpr uint16_t kSecureSendOpcode = 0xFC09;
constexpr size_t kSecureSendHeaderSize = 4;  // opcode, parameter length, fragment type
constexpr size_t kSecureSendMaxData = 252;

// Fragment types of a Secure Send.
constexpr uint8_t kFragmentHeader = 0x00;
constexpr uint8_t kFragmentBody = 0x01;
constexpr uint8_t kFragmentSignature = 0x02;
constexpr uint8_t kFragmentPublicKey = 0x03;

// Signed-image geometry as the iterators walk it.
constexpr uint32_t kFirstBlockEnd = 644;    // header, key, key field, signature
constexpr uint32_t kSecondBlockSize = 320;  // header, key, signature of the second block
constexpr uint32_t kSecondBlockEnd = kFirstBlockEnd + kSecondBlockSize;
constexpr uint8_t kSecondBlockMarker = 0x06;

// The controller's signature scheme sits at this byte of the long version answer.
constexpr size_t kSignatureSchemeIndex = 78;

// BSEQ record types.
constexpr uint8_t kBseqCommandRecord = 0x01;
constexpr uint8_t kBseqEventRecord = 0x02;

constexpr size_t kHciCommandHeaderSize = 3;  // opcode, parameter length

// Each operation writes the next HCI command of the image (opcode first, no H4
// byte) into buffer. *length is the buffer's capacity on entry and the
// command's length on return. Status 4 (image exhausted) leaves *length as it
// was; 2 and 12 set it to 0.

// Chooses the iterator by the controller's mode and answer form.
FwLibStatus GetNextCommand(FwLibContext* context, uint8_t* buffer, uint32_t* length);

// Recorded command sequences: commands as they stand, event records skipped.
FwLibStatus NextBseqCommand(FwLibContext* context, uint8_t* buffer, uint32_t* length);
// Images with one signature block.
FwLibStatus NextSfiCommand(FwLibContext* context, uint8_t* buffer, uint32_t* length);
// Images with an optional second signature block, chosen by signature scheme.
FwLibStatus NextDualSignedCommand(FwLibContext* context, uint8_t* buffer, uint32_t* length);

}  // namespace qrx
