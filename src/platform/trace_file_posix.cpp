#include <fcntl.h>
#include <unistd.h>

#include "platform/trace_file.h"

namespace qrx {

std::FILE* OpenTraceFile(const char* path) {
  constexpr mode_t kNewFileMode = 0666;  // less the umask, as fopen would
  // A FIFO without a reader fails this open (ENXIO) instead of blocking it.
  const int fd =
      ::open(path, O_WRONLY | O_APPEND | O_CREAT | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, kNewFileMode);
  if (fd < 0) return nullptr;
  // Records are written whole, so writes block as they would have.
  const int flags = ::fcntl(fd, F_GETFL);
  if (flags < 0 || ::fcntl(fd, F_SETFL, flags & ~O_NONBLOCK) < 0) {
    ::close(fd);
    return nullptr;
  }
  std::FILE* file = ::fdopen(fd, "a");
  if (file == nullptr) ::close(fd);
  return file;
}

}  // namespace qrx
