#pragma once

#include <cstdint>
#include <filesystem>
#include <span>
#include <string>
#include <vector>

namespace qrx::test {

// A fresh directory under the system's temporary directory, removed with
// everything in it when the object goes.
class ScratchDir {
 public:
  ScratchDir();
  ~ScratchDir();
  ScratchDir(const ScratchDir&) = delete;
  ScratchDir& operator=(const ScratchDir&) = delete;

  std::string Path(const std::string& name) const { return (dir_ / name).string(); }
  std::string Write(const std::string& name, std::span<const uint8_t> bytes) const;
  std::vector<uint8_t> Read(const std::string& name) const;
  std::string ReadText(const std::string& name) const;

 private:
  std::filesystem::path dir_;
};

}  // namespace qrx::test
