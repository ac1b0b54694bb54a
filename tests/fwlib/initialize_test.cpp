#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <string>
#include <thread>
#include <utility>

#include "fwlib/bounded_format.h"
#include "fwlib/firmware_location.h"
#include "fwlib/image_key.h"
#include "fwlib_fixture.h"
#include "platform/clock.h"

namespace qrx::test {
namespace {

using Initialize = DriveFixture;

// Each answer length is accepted in its own mode only. The firmware comes from
// a container, else the image named after the answer or the image key, else
// the fallback of the mode. A legacy ROM part (variants below 11) compares
// the patch after the image's first command with its own.
TEST_F(Initialize, ClassifiesFindsTheImageAndComparesPatchLevels) {
  // An empty first command, then the image's patch.
  const auto sfi = [](uint8_t patch) { return Bytes{0x01, 0xFC, 0, patch}; };
  const Bytes legacy = LegacyAnswer(7, 6);  // variant 7 has a family directory
  const Bytes boot = TlvAnswer(90, 1), bseq = {0x01, 0x2F, 0xFC, 0};
  FwImageKey key{};
  ASSERT_EQ(FwLibBuildImageKey(Classified(boot).get(), &key), 0u);
  std::string keyName;
  for (uint8_t b : key)
    keyName += "0123456789abcdef"[b >> 4], keyName += "0123456789abcdef"[b & 15];
  const std::string own = "Program Files/Norix/Bluetooth/";
  using File = std::pair<std::string, Bytes>;
  const File inFamily = {
      "Program Files (x86)/Norix/Bluetooth/drivers/qrxuart/QB/Win10_UWDRelease/x64/qrxfw.dat",
      Container({{1, legacy, sfi(1)}})};
  const File container = {own + "qrxfw.dat", Container({{1, legacy, sfi(2)}})};
  const File foreign = {own + "qrxfw.dat", Container({{0, legacy, sfi(2)}})};
  const File named = {own + "370703065122142000.sfi", sfi(3)}, fallback = {own + "Fw.sfi", sfi(4)};
  const File fallbackBseq = {own + "Fw.bseq", bseq};
  struct Case {
    const char* name;
    Bytes answer;
    std::vector<File> files;
    FwLibStatus status;
    Bytes loaded = {};
  };
  // clang-format off
  const Case cases[] = {
      {"all", legacy, {inFamily, container, named, fallback}, 0, sfi(2)},
      {"no container", legacy, {inFamily, named, fallback}, 0, sfi(3)},
      {"container without this controller", legacy, {foreign, named}, 0, sfi(3)},
      {"fallback only", legacy, {inFamily, fallback}, 0, sfi(4)},
      {"family directory only", legacy, {inFamily}, 11},
      {"90 bootloader: named by key", boot, {{own + keyName + ".sfi", sfi(5)}, fallback}, 0,
       sfi(5)},
      {"90 operational", TlvAnswer(90, 0), {fallback}, 12},
      {"80 bootloader", TlvAnswer(80, 1), {fallback, fallbackBseq}, 12},
      {"80 operational", TlvAnswer(80, 0), {fallback, fallbackBseq}, 0, bseq},
      {"legacy operational", LegacyAnswer(11, 5), {fallback, fallbackBseq}, 0, bseq},
      {"other length", Bytes(10, 0), {fallback}, 12},
      {"same patch", LegacyAnswer(10, 6, 4), {fallback}, 6, sfi(4)},
      {"older image", LegacyAnswer(10, 6, 5), {fallback}, 6, sfi(4)},
      {"newer over none", LegacyAnswer(10, 6, 0), {fallback}, 0, sfi(4)},
      {"newer over another", LegacyAnswer(10, 6, 3), {fallback}, 15, sfi(4)},
      {"modern part", LegacyAnswer(11, 6, 4), {fallback}, 0, sfi(4)},
      {"nothing after the command", LegacyAnswer(10, 6),
       {{own + "Fw.sfi", {1, 0xFC, 2, 0xAA, 0xBB}}}, 12},
      {"command past the end", LegacyAnswer(10, 6),
       {{own + "Fw.sfi", {1, 0xFC, 200, 0xAA, 0xBB, 1}}}, 12},
  };
  // clang-format on
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    drive_.Remove("Program Files");
    drive_.Remove("Program Files (x86)");
    for (const auto& [file, bytes] : c.files) drive_.WriteFile(file, bytes);
    FwLibContext* raw = nullptr;
    EXPECT_EQ(FwLibInitialize(c.answer.data(), static_cast<uint8_t>(c.answer.size()), 1, &raw),
              c.status);
    ContextPtr context(raw, FwLibRelease);  // 6 and 15 hand back a live context too
    EXPECT_EQ(raw ? Bytes(raw->imageData, raw->imageData + raw->imageSize) : Bytes{}, c.loaded);
  }
}

// A FIFO where the search looks is passed over, not waited on. A search
// stuck on it is freed after 2 s by a writer, which finds it still waiting.
TEST_F(Initialize, PassesOverAFifoWithoutWaiting) {
  drive_.WriteFile("Program Files/Norix/Bluetooth/Fw.sfi", Bytes{1, 0xFC, 0, 4});
  const std::string fifo = drive_.Join("Program Files/Norix/Bluetooth/qrxfw.dat");
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  std::atomic<bool> done = false, stalled = false;
  std::thread writer([&] {
    for (int i = 0; i < 200 && !done; ++i) SleepMilliseconds(10);
    const int fd = ::open(fifo.c_str(), O_WRONLY | O_NONBLOCK);  // succeeds only with a reader
    if (fd >= 0) stalled = !done, ::close(fd);
  });
  const Bytes answer = LegacyAnswer(10, 6);
  FwLibContext* raw = nullptr;
  EXPECT_EQ(FwLibInitialize(answer.data(), static_cast<uint8_t>(answer.size()), 1, &raw), 0u);
  done = true;
  writer.join();
  FwLibRelease(raw);
  EXPECT_FALSE(stalled);
}

TEST_F(Initialize, RefusesPathsOf260CharactersOrMore) {
  std::array<wchar_t, kFwPathChars> path{}, name{};
  const Bytes answer = LegacyAnswer(10, 6);
  const FwImageKey key{};
  for (uint32_t over : {0u, 1u}) {
    // "C:\" folder "\qrxfw.dat": 13 characters around the folder. A path that
    // fits names a missing file (11); one that does not is refused (2).
    const std::wstring folder = L"\\" + std::wstring(245 + over, L'f');
    size_t capacity = path.size();
    EXPECT_EQ(FwLibComposePath(path.data(), &capacity, folder.c_str(), kContainerName),
              over ? 2u : 11u);
    // Image names: 22 (version, "sfi") or 28 (key, "sfi") characters after the folder.
    EXPECT_EQ(FwLibComposeVersionName(answer.data(), 1, &folder[9], name.data(), path.data()),
              over);
    EXPECT_EQ(FwLibComposeKeyName(&key, 1, &folder[15], name.data(), path.data()), over);
  }
}

}  // namespace
}  // namespace qrx::test
