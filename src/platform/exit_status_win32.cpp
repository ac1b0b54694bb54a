#include "platform/exit_status.h"

namespace qrx {

const int kExitFailure = -1;

}  // namespace qrx
