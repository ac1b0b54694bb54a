#include "scratch_dir.h"

#include <atomic>
#include <chrono>
#include <fstream>
#include <iterator>
#include <random>

namespace qrx::test {

ScratchDir::ScratchDir() {
  static std::atomic<uint32_t> counter{0};
  std::random_device random;
  const auto base = std::filesystem::temp_directory_path();
  do {
    dir_ = base / ("qrx-test-" + std::to_string(random()) + "-" + std::to_string(counter++));
  } while (!std::filesystem::create_directory(dir_));
}

ScratchDir::~ScratchDir() {
  std::error_code ignored;
  std::filesystem::remove_all(dir_, ignored);
}

std::string ScratchDir::Write(const std::string& name, std::span<const uint8_t> bytes) const {
  const std::string path = Path(name);
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(bytes.data()),
            static_cast<std::streamsize>(bytes.size()));
  return path;
}

std::vector<uint8_t> ScratchDir::Read(const std::string& name) const {
  std::ifstream in(Path(name), std::ios::binary);
  return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), {});
}

std::string ScratchDir::ReadText(const std::string& name) const {
  std::ifstream in(Path(name), std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

}  // namespace qrx::test
