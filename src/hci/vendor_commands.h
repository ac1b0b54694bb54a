#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace qrx {

// Vendor opcodes (OGF 0x3F) sent by the run.
constexpr uint16_t kOpVendorReset = 0xFC01;
constexpr uint16_t kOpReadVersion = 0xFC05;
constexpr uint16_t kOpSetBaudRateByCode = 0xFC06;
constexpr uint16_t kOpSecureSend = 0xFC09;
constexpr uint16_t kOpReadSecureBootParams = 0xFC0D;
constexpr uint16_t kOpChangeBaudRate = 0xFC10;
constexpr uint16_t kOpManufacturerMode = 0xFC11;
constexpr uint16_t kOpDdcCceBlockWrite = 0xFC8B;

// The two vendor reset commands, kept with the H4 byte 0x01 in front; only
// the 11 bytes after it are sent. The boot address sits in bytes 8..11,
// least significant first.
constexpr size_t kResetTemplateSize = 12;
constexpr size_t kResetBootAddressIndex = 8;
constexpr uint32_t kInitialBootAddress = 0x8000;
constexpr uint32_t kSecureBootOffBootAddress = 0x40800;

extern std::array<uint8_t, kResetTemplateSize> g_bootAddressResetTemplate;
extern const std::array<uint8_t, kResetTemplateSize> kToBootloaderResetTemplate;

// Writes the boot address into the boot-address template.
void SetResetBootAddress(uint32_t address);
// Puts the boot-address template back to its initial value (tests, repeated runs).
void RestoreResetTemplate();

// The vendor exchanges of the run. Console step lines on standard error.
bool ReadVersion(uint8_t* event);  // event buffer of 259 bytes
void SendVendorReset(bool toBootloader);
void ReadSecureBootParams();
bool WriteDdcCceBlock();  // always false, as designed; callers ignore it
bool DecideDownload(const uint8_t* event, bool tlv);  // stand-alone; not called by the run

}  // namespace qrx
