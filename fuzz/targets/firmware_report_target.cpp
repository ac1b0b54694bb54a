// `qrxfw inspect` on a file holding the input: the container directory, each
// entry's image and the fragment walk it reports.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "image/firmware_report.h"
#include "platform/console.h"

namespace {
std::string g_path;
}

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  // A file in memory when the host has such a folder: disk writes would
  // make this target a hundred times slower.
  const char* folder = std::getenv("TMPDIR");
  if (folder == nullptr) folder = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
  g_path =
      std::string(folder) + "/qrx-report-" + std::to_string(static_cast<long>(getpid())) + ".bin";
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const qrx::ConsoleCapture console;  // the console text is kept in memory, unread
  std::FILE* file = std::fopen(g_path.c_str(), "wb");
  if (file == nullptr) std::abort();
  if (size > 0 && std::fwrite(data, 1, size, file) != size) std::abort();
  std::fclose(file);
  const char* argv[] = {g_path.c_str(), nullptr};
  qrx::fwtool::RunInspect(1, argv);
  return 0;
}
