#include "support/temp_dir.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

namespace qrx::test {

TempDir::TempDir() {
  const char* base = std::getenv("TMPDIR");
  std::string pattern =
      std::string(base != nullptr && *base != '\0' ? base : "/tmp") + "/qrxbpl-test-XXXXXX";
  std::vector<char> buffer(pattern.begin(), pattern.end());
  buffer.push_back('\0');
  if (::mkdtemp(buffer.data()) == nullptr) {
    ADD_FAILURE() << "cannot create a temporary directory from " << pattern;
    return;
  }
  path_ = buffer.data();
}

TempDir::~TempDir() {
  if (path_.empty()) return;
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::string TempDir::Join(const std::string& relative) const {
  return path_ + "/" + relative;
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
  const std::string directory = Join(relative);
  std::filesystem::create_directories(directory);
  return directory;
}

void TempDir::Remove(const std::string& relative) const {
  std::error_code ignored;
  std::filesystem::remove_all(Join(relative), ignored);
}

}  // namespace qrx::test
