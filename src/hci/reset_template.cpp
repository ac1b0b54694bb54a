#include "hci/vendor_commands.h"
#include "platform/byte_order.h"

namespace qrx {

namespace {
constexpr std::array<uint8_t, kResetTemplateSize> kInitialBootAddressResetTemplate = {
    0x01, 0x01, 0xFC, 0x08, 0x00, 0x00, 0x00, 0x01, 0x00, 0x80, 0x00, 0x00};
}  // namespace

std::array<uint8_t, kResetTemplateSize> g_bootAddressResetTemplate =
    kInitialBootAddressResetTemplate;

const std::array<uint8_t, kResetTemplateSize> kToBootloaderResetTemplate = {
    0x01, 0x01, 0xFC, 0x08, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00};

void SetResetBootAddress(uint32_t address) {
  WriteLe32(g_bootAddressResetTemplate, kResetBootAddressIndex, address);
}

void RestoreResetTemplate() {
  g_bootAddressResetTemplate = kInitialBootAddressResetTemplate;
}

}  // namespace qrx
