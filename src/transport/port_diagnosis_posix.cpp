#include <dirent.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string_view>
#include <vector>

#include "transport/port_diagnosis.h"

namespace qrx {
namespace {

struct ErrorKind {
  int error;
  PortFailureKind kind;
};

// An exclusive terminal refuses with EBUSY, a held lock with EWOULDBLOCK.
constexpr std::array<ErrorKind, 5> kErrorKinds = {{
    {EACCES, PortFailureKind::kPermission},
    {EPERM, PortFailureKind::kPermission},
    {EBUSY, PortFailureKind::kHeld},
    {EWOULDBLOCK, PortFailureKind::kHeld},
    {ENOENT, PortFailureKind::kMissing},
}};

constexpr const char* kLocksFile = "/proc/locks";
constexpr const char* kProcessFolder = "/proc";

bool UserInGroup(gid_t group) {
  if (getegid() == group) return true;
  const int count = getgroups(0, nullptr);
  if (count <= 0) return false;
  std::vector<gid_t> groups(static_cast<size_t>(count));
  const int got = getgroups(count, groups.data());
  for (int i = 0; i < got; ++i) {
    if (groups[static_cast<size_t>(i)] == group) return true;
  }
  return false;
}

std::string GroupName(gid_t group) {
  const struct group* entry = getgrgid(group);
  return entry != nullptr ? entry->gr_name : std::to_string(group);
}

std::string UserName() {
  const struct passwd* entry = getpwuid(geteuid());
  return entry != nullptr ? entry->pw_name : std::to_string(geteuid());
}

std::string ProcessName(int64_t pid) {
  std::ifstream comm(std::string(kProcessFolder) + "/" + std::to_string(pid) + "/comm");
  std::string name;
  std::getline(comm, name);
  return name;
}

// The lock table names the holder by device and inode:
// "1: FLOCK  ADVISORY  WRITE 1234 00:19:3 0 EOF".
int64_t LockHolder(const struct stat& device) {
  char wanted[64];
  std::snprintf(wanted, sizeof wanted, "%02x:%02x:%llu", major(device.st_dev),
                minor(device.st_dev), static_cast<unsigned long long>(device.st_ino));
  std::ifstream locks(kLocksFile);
  std::string line;
  while (std::getline(locks, line)) {
    std::istringstream fields(line);
    std::string number, type, advisory, mode, pid, file;
    fields >> number >> type;
    if (type == "->") continue;  // a waiter, not the holder
    fields >> advisory >> mode >> pid >> file;
    if (file == wanted) return std::strtoll(pid.c_str(), nullptr, 10);
  }
  return 0;
}

// Without a lock, the process that has the device open, from its open files.
int64_t OpenedBy(const std::string& device) {
  DIR* folder = opendir(kProcessFolder);
  if (folder == nullptr) return 0;
  int64_t found = 0;
  const int64_t self = getpid();
  while (found == 0) {
    const dirent* entry = readdir(folder);
    if (entry == nullptr) break;
    const int64_t pid = std::strtoll(entry->d_name, nullptr, 10);
    if (pid <= 0 || pid == self) continue;
    const std::string fds = std::string(kProcessFolder) + "/" + entry->d_name + "/fd";
    DIR* open = opendir(fds.c_str());
    if (open == nullptr) continue;
    while (const dirent* fd = readdir(open)) {
      std::array<char, PATH_MAX> target{};
      const std::string link = fds + "/" + fd->d_name;
      const ssize_t n = readlink(link.c_str(), target.data(), target.size() - 1);
      if (n > 0 && device == std::string_view(target.data(), static_cast<size_t>(n))) {
        found = pid;
        break;
      }
    }
    closedir(open);
  }
  closedir(folder);
  return found;
}

}  // namespace

PortDiagnosis DiagnosePortFailure(const char* path, int error) {
  PortDiagnosis diagnosis;
  for (const ErrorKind& known : kErrorKinds) {
    if (known.error == error) diagnosis.kind = known.kind;
  }
  struct stat device {};
  if (diagnosis.kind == PortFailureKind::kMissing || ::stat(path, &device) != 0) return diagnosis;
  if (diagnosis.kind == PortFailureKind::kPermission) {
    if (geteuid() != 0 && !UserInGroup(device.st_gid)) {
      diagnosis.missingGroup = GroupName(device.st_gid);
      diagnosis.userName = UserName();
    }
  } else if (diagnosis.kind == PortFailureKind::kHeld) {
    diagnosis.holderPid = LockHolder(device);
    if (diagnosis.holderPid == 0) {
      std::array<char, PATH_MAX> resolved{};
      if (realpath(path, resolved.data()) != nullptr) diagnosis.holderPid = OpenedBy(resolved.data());
    }
    if (diagnosis.holderPid != 0) diagnosis.holderName = ProcessName(diagnosis.holderPid);
  }
  return diagnosis;
}

}  // namespace qrx
