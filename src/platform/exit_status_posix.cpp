#include "platform/exit_status.h"

namespace qrx {

const int kExitFailure = 255;

}  // namespace qrx
