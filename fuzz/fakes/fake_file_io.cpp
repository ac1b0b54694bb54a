// Files from memory, matched by the end of the host path.
#include <cerrno>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "fake_world.h"
#include "platform/file_io.h"

namespace qrx {

namespace {
struct FakeFile {
  std::string suffix;
  std::vector<uint8_t> bytes;
};
std::vector<FakeFile> g_files;
std::map<FileHandle, const FakeFile*> g_open;
FileHandle g_nextHandle = 1;

const FakeFile* Find(FileHandle handle) {
  const auto it = g_open.find(handle);
  return it == g_open.end() ? nullptr : it->second;
}
}  // namespace

namespace fuzz {
void AddFakeFile(std::string suffix, std::vector<uint8_t> bytes) {
  g_files.push_back({std::move(suffix), std::move(bytes)});
}
void ResetFakeFiles() {
  g_files.clear();
  g_open.clear();
  g_nextHandle = 1;
}
}  // namespace fuzz

int FileOpenForReading(const char* hostPath, FileHandle* handle) {
  *handle = kInvalidFileHandle;
  const std::string path(hostPath);
  for (const FakeFile& file : g_files) {
    if (path.size() >= file.suffix.size() &&
        path.compare(path.size() - file.suffix.size(), file.suffix.size(), file.suffix) == 0) {
      *handle = g_nextHandle++;
      g_open[*handle] = &file;
      return 0;
    }
  }
  errno = ENOENT;
  return ENOENT;
}

int FileGetSize(FileHandle handle, uint64_t* size) {
  const FakeFile* file = Find(handle);
  if (file == nullptr) return errno = EBADF;
  *size = file->bytes.size();
  return 0;
}

int FileReadAt(FileHandle handle, uint64_t offset, uint8_t* buffer, uint32_t count,
               uint32_t* bytesRead) {
  const FakeFile* file = Find(handle);
  *bytesRead = 0;
  if (file == nullptr) return errno = EBADF;
  if (offset >= file->bytes.size()) return 0;
  const uint64_t available = file->bytes.size() - offset;
  const auto take = static_cast<uint32_t>(available < count ? available : count);
  if (take > 0) std::memcpy(buffer, file->bytes.data() + offset, take);
  *bytesRead = take;
  return 0;
}

int FileClose(FileHandle handle) {
  if (g_open.erase(handle) == 0) return errno = EBADF;
  return 0;
}

}  // namespace qrx
