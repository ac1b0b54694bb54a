#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <string>

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

int OutputFileTruncate(OutputFileHandle handle, uint64_t size) {
  return ::ftruncate(static_cast<int>(handle), static_cast<off_t>(size)) == 0 ? 0 : errno;
}

namespace {

// Written in place, as it stands: what is not a regular file (a terminal, a
// pipe, /dev/stdout) cannot be replaced by renaming, and must not be.
int WriteInPlace(const char* hostPath, std::span<const uint8_t> bytes) {
  OutputFileHandle handle = kNoOutputFile;
  int error = OutputFileCreate(hostPath, &handle);
  if (error != 0) return error;
  error = OutputFileWrite(handle, bytes);
  const int closeError = OutputFileClose(handle);
  return error != 0 ? error : closeError;
}

}  // namespace

int OutputFileReplace(const char* hostPath, std::span<const uint8_t> bytes) {
  // A link is followed: the file it names is the one replaced.
  std::array<char, PATH_MAX> resolved{};
  const std::string target =
      ::realpath(hostPath, resolved.data()) != nullptr ? resolved.data() : hostPath;
  struct stat status {};
  if (::stat(target.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
    return WriteInPlace(target.c_str(), bytes);
  }
  // Beside the file, so the rename stays on one file system; the process id
  // keeps two runs that share a report path off each other's half.
  const std::string part = target + "." + std::to_string(::getpid()) + ".part";
  const int fd =
      ::open(part.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOCTTY, kCreateMode);
  if (fd < 0) return errno;
  int error = OutputFileWrite(fd, bytes);
  // A file system that takes the bytes now may still refuse them at the sync or the close.
  if (error == 0 && ::fsync(fd) != 0) error = errno;
  if (::close(fd) != 0 && error == 0) error = errno;
  if (error == 0 && ::rename(part.c_str(), target.c_str()) != 0) error = errno;
  if (error != 0) ::unlink(part.c_str());
  return error;
}

}  // namespace qrx
