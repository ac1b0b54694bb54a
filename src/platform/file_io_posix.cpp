#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "platform/file_io.h"

namespace qrx {

namespace {

// Descriptor 0 is a valid descriptor but the empty handle value, so handles
// carry the descriptor plus one.
FileHandle HandleFromDescriptor(int fd) {
  return static_cast<FileHandle>(fd) + 1;
}

int DescriptorFromHandle(FileHandle handle) {
  return FileHandleIsOpen(handle) ? static_cast<int>(handle - 1) : -1;
}

}  // namespace

int FileOpenForReading(const char* hostPath, FileHandle* handle) {
  *handle = kInvalidFileHandle;
  // Non-blocking so that a FIFO at the path cannot stall the open; it has no
  // effect on the regular files that pass the type check below.
  const int fd = ::open(hostPath, O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
  if (fd < 0) return errno;
  struct stat info {};
  if (::fstat(fd, &info) != 0) {
    const int error = errno;
    ::close(fd);
    return error;
  }
  if (!S_ISREG(info.st_mode)) {
    ::close(fd);
    return S_ISDIR(info.st_mode) ? EISDIR : ENXIO;
  }
  *handle = HandleFromDescriptor(fd);
  return 0;
}

int FileGetSize(FileHandle handle, uint64_t* size) {
  struct stat info {};
  if (::fstat(DescriptorFromHandle(handle), &info) != 0) return errno;
  *size = static_cast<uint64_t>(info.st_size);
  return 0;
}

int FileReadAt(FileHandle handle, uint64_t offset, uint8_t* buffer, uint32_t count,
               uint32_t* bytesRead) {
  const int fd = DescriptorFromHandle(handle);
  uint32_t done = 0;
  while (done < count) {
    const ssize_t got = ::pread(fd, buffer + done, count - done, static_cast<off_t>(offset + done));
    if (got < 0) {
      if (errno == EINTR) continue;
      *bytesRead = done;
      return errno;
    }
    if (got == 0) break;
    done += static_cast<uint32_t>(got);
  }
  *bytesRead = done;
  return 0;
}

int FileClose(FileHandle handle) {
  if (::close(DescriptorFromHandle(handle)) != 0) return errno;
  return 0;
}

}  // namespace qrx
