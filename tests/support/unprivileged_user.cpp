#include "support/unprivileged_user.h"

#include <unistd.h>

#include <chrono>
#include <thread>

#include "support/child_process_posix.h"

namespace qrx::test {

namespace {

// Other test programs may be changing the user files at the same moment; the
// tools then refuse at once ("cannot lock"), so they are asked again.
constexpr int kTries = 50;
constexpr auto kBetweenTries = std::chrono::milliseconds(100);

bool RunUntilDone(const std::vector<std::string>& argv) {
  for (int i = 0; i < kTries; ++i) {
    if (RunProcess(argv).exitStatus == 0) return true;
    std::this_thread::sleep_for(kBetweenTries);
  }
  return false;
}

}  // namespace

UnprivilegedUser::UnprivilegedUser(const std::string& group)
    : name_("qrxbench" + std::to_string(::getpid())) {
  if (::geteuid() != 0) return;
  made_ = RunUntilDone({"/usr/sbin/useradd", "--no-create-home", "--shell", "/usr/sbin/nologin",
                        "--groups", group, name_});
}

UnprivilegedUser::~UnprivilegedUser() {
  if (made_) RunUntilDone({"/usr/sbin/userdel", name_});
}

std::vector<std::string> UnprivilegedUser::Running(const std::vector<std::string>& argv) const {
  std::vector<std::string> as = {"/usr/bin/setpriv", "--reuid=" + name_, "--regid=" + name_,
                                 "--init-groups", "--"};
  as.insert(as.end(), argv.begin(), argv.end());
  return as;
}

}  // namespace qrx::test
