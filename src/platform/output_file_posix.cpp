#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "platform/output_file.h"

namespace qrx {

namespace {
constexpr mode_t kCreateMode = 0644;
}

int OutputFileCreate(const char* hostPath, OutputFileHandle* handle) {
  *handle = kNoOutputFile;
  const int fd = ::open(hostPath, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOCTTY, kCreateMode);
  if (fd < 0) return errno;
  *handle = fd;
  return 0;
}

int OutputFileWrite(OutputFileHandle handle, std::span<const uint8_t> bytes) {
  size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t wrote =
        ::write(static_cast<int>(handle), bytes.data() + done, bytes.size() - done);
    if (wrote < 0) {
      if (errno == EINTR) continue;
      return errno;
    }
    done += static_cast<size_t>(wrote);
  }
  return 0;
}

int OutputFileClose(OutputFileHandle handle) {
  if (handle == kNoOutputFile) return EBADF;
  return ::close(static_cast<int>(handle)) == 0 ? 0 : errno;
}

}  // namespace qrx
