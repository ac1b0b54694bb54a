#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace qrx::test {

// A fresh directory under $TMPDIR (or /tmp), removed with everything in it
// when the object goes.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::string& Path() const { return path_; }
  // Absolute path of a relative name inside the directory.
  std::string Join(const std::string& relative) const { return path_ + "/" + relative; }
  // Writes a file (making its parent directories); returns its path.
  std::string WriteFile(const std::string& relative, std::span<const uint8_t> bytes) const;
  // A file's whole contents ("" when it cannot be read).
  std::string Read(const std::string& relative) const;
  std::string MakeDirectories(const std::string& relative) const;
  void Remove(const std::string& relative) const;

 private:
  std::string path_;
};

}  // namespace qrx::test
