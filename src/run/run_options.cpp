#include "run/run_options.h"

namespace qrx {

RunOptions g_runOptions;

}  // namespace qrx
