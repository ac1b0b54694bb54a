#include "support/scoped_env.h"

#include <cstdlib>

namespace qrx {
namespace {

void Assign(const std::string& name, const std::optional<std::string>& value) {
  if (value) {
    ::setenv(name.c_str(), value->c_str(), 1);
  } else {
    ::unsetenv(name.c_str());
  }
}

}  // namespace

ScopedEnv::ScopedEnv(std::string name, std::optional<std::string> value) : name_(std::move(name)) {
  if (const char* old = std::getenv(name_.c_str())) previous_ = old;
  Assign(name_, value);
}

ScopedEnv::~ScopedEnv() {
  Assign(name_, previous_);
}

}  // namespace qrx
