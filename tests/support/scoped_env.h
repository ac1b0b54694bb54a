#pragma once

#include <cstdlib>
#include <optional>
#include <string>

namespace qrx {

// Sets (or, with nullopt, removes) one environment variable for the life of
// the object and puts the previous state back afterwards.
class ScopedEnv {
 public:
  ScopedEnv(std::string name, const std::optional<std::string>& value) : name_(std::move(name)) {
    if (const char* old = std::getenv(name_.c_str())) previous_ = old;
    Assign(value);
  }
  ~ScopedEnv() { Assign(previous_); }
  ScopedEnv(const ScopedEnv&) = delete;
  ScopedEnv& operator=(const ScopedEnv&) = delete;

 private:
  void Assign(const std::optional<std::string>& value) {
    value ? ::setenv(name_.c_str(), value->c_str(), 1) : ::unsetenv(name_.c_str());
  }
  std::string name_;
  std::optional<std::string> previous_;
};

}  // namespace qrx
