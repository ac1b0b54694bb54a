#pragma once

#include <optional>
#include <string>

namespace qrx {

// Sets (or, with nullopt, removes) one environment variable for the life of
// the object and puts the previous state back afterwards.
class ScopedEnv {
 public:
  ScopedEnv(std::string name, std::optional<std::string> value);
  ~ScopedEnv();
  ScopedEnv(const ScopedEnv&) = delete;
  ScopedEnv& operator=(const ScopedEnv&) = delete;

 private:
  std::string name_;
  std::optional<std::string> previous_;
};

}  // namespace qrx
