// The option record and the TCP client come from other branches. Until they
// are in the tree these weak stand-ins let the HCI layer link; the real
// definitions take precedence once present. The TCP link is simply down.
#include "app/options.h"
#include "transport/tcp_client.h"

namespace qrx {

__attribute__((weak)) RunOptions g_runOptions;
__attribute__((weak)) int32_t SendSocketCmd(const uint8_t*, uint32_t) {
  return -1;
}
__attribute__((weak)) bool ReadSocketEvent(uint8_t*, uint32_t, uint32_t*, uint32_t) {
  return false;
}

}  // namespace qrx
