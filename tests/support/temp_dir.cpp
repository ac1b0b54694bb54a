#include "support/temp_dir.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>

namespace qrx::test {

TempDir::TempDir() {
  std::string pattern = std::filesystem::temp_directory_path() / "qrxbpl-test-XXXXXX";
  if (::mkdtemp(pattern.data()) != nullptr) {
    path_ = pattern;
  } else {
    ADD_FAILURE() << "cannot create a temporary directory from " << pattern;
  }
}

TempDir::~TempDir() {
  std::error_code ignored;
  if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
}

std::string TempDir::WriteFile(const std::string& relative, std::span<const uint8_t> bytes) const {
  const std::filesystem::path file = Join(relative);
  std::filesystem::create_directories(file.parent_path());
  std::ofstream out(file, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(bytes.data()),
            static_cast<std::streamsize>(bytes.size()));
  EXPECT_TRUE(out.good()) << "writing " << file;
  return file.string();
}

std::string TempDir::Read(const std::string& relative) const {
  std::ifstream in(Join(relative), std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

std::string TempDir::MakeDirectories(const std::string& relative) const {
  std::filesystem::create_directories(Join(relative));
  return Join(relative);
}

void TempDir::Remove(const std::string& relative) const {
  std::error_code ignored;
  std::filesystem::remove_all(Join(relative), ignored);
}

}  // namespace qrx::test
