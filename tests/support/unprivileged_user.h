#pragma once

#include <string>
#include <vector>

namespace qrx::test {

// A user made for one test, without a home, in one supplementary group (the
// device's, as "dialout" is for a serial adapter), and removed with the
// object. What root is let through and an ordinary user is not (a terminal
// held exclusive) is seen only as such a user. Only root can make one.
class UnprivilegedUser {
 public:
  explicit UnprivilegedUser(const std::string& group);
  ~UnprivilegedUser();
  UnprivilegedUser(const UnprivilegedUser&) = delete;
  UnprivilegedUser& operator=(const UnprivilegedUser&) = delete;

  // False when not run as root, or the user could not be made.
  bool Made() const { return made_; }
  const std::string& Name() const { return name_; }
  // The command line that runs argv as this user, with its groups and the
  // caller's environment.
  std::vector<std::string> Running(const std::vector<std::string>& argv) const;

 private:
  std::string name_;
  bool made_ = false;
};

}  // namespace qrx::test
