#pragma once

namespace qrx::fwtool {

// `qrxfw inspect FILE`: prints what the loader would see in a container or an
// image. argv[0] is the file path. Returns the process exit status.
int RunInspect(int argc, const char* const* argv);

}  // namespace qrx::fwtool
