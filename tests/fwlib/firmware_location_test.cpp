#include "fwlib/firmware_location.h"

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <utility>

#include "fwlib/bounded_format.h"
#include "fwlib/image_key.h"
#include "fwlib_fixture.h"
#include "image/fw_image.h"

namespace qrx::test {
namespace {

using Path = std::array<wchar_t, kFwPathChars>;
using Location = DriveFixture;

Bytes Sfi(uint32_t seed) {
  return fwimage::BuildSfiImage({.bodyBytes = 300 + seed, .seed = seed, .patchNumber = 1});
}

TEST_F(Location, SearchesContainersThenTheNamedImageThenTheFallback) {
  const Bytes legacy = LegacyAnswer(7, 6);  // variant 7 has a family directory
  const Bytes boot = TlvAnswer(90, 1),
              bseq = fwimage::BuildBseqImage(fwimage::SampleBseqCommands(3, 1), true);
  FwImageKey key{};
  ASSERT_EQ(FwLibBuildImageKey(Classified(boot).get(), &key), 0u);
  std::string keyName;
  for (uint8_t b : key)
    keyName += "0123456789abcdef"[b >> 4], keyName += "0123456789abcdef"[b & 15];
  const Bytes legacyKey(legacy.begin(), legacy.begin() + 8);
  const std::string& own = kOwnHostFolder;
  using File = std::pair<std::string, Bytes>;
  const File inFamily = {
      "Program Files (x86)/Norix/Bluetooth/drivers/qrxuart/QB/Win10_UWDRelease/x64/qrxfw.dat",
      Container({{1, legacyKey, Sfi(1)}})};
  const File container = {own + "qrxfw.dat", Container({{1, legacyKey, Sfi(2)}})};
  const File foreign = {own + "qrxfw.dat", Container({{0, legacyKey, Sfi(2)}})};
  const File named = {own + "370703065122142000.sfi", Sfi(3)}, fallback = {own + "Fw.sfi", Sfi(4)};
  struct Case {
    const char* name;
    Bytes answer;
    std::vector<File> files;
    Bytes expected;  // none: 11
  };
  // clang-format off
  const Case cases[] = {
      {"all", legacy, {inFamily, container, named, fallback}, Sfi(2)},
      {"no container", legacy, {inFamily, named, fallback}, Sfi(3)},
      {"container without this controller", legacy, {foreign, named}, Sfi(3)},
      {"fallback only", legacy, {inFamily, fallback}, Sfi(4)},
      {"family directory only", legacy, {inFamily}, {}},
      {"long form: named by key", boot, {{own + keyName + ".sfi", Sfi(5)}, fallback}, Sfi(5)},
      {"operational: its own fallback", TlvAnswer(80, 0), {fallback, {own + "Fw.bseq", bseq}},
       bseq},
  };
  // clang-format on
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    drive_.Remove("Program Files");
    drive_.Remove("Program Files (x86)");
    for (const auto& [file, bytes] : c.files) drive_.WriteFile(file, bytes);
    FwLibContext* raw = nullptr;
    EXPECT_EQ(FwLibInitialize(c.answer.data(), static_cast<uint8_t>(c.answer.size()), 1, &raw),
              c.expected.empty() ? 11u : 0u);
    ContextPtr context(raw);
    if (c.expected.empty()) continue;
    ASSERT_NE(raw, nullptr);
    EXPECT_EQ(Bytes(raw->imageData, raw->imageData + raw->imageSize), c.expected);
  }
}

TEST_F(Location, PathsOf260CharactersOrMoreFail) {
  Path path{};
  // "C:\" folder "\qrxfw.dat": 13 characters around the folder. A path that
  // fits names a missing file (11); one that does not is refused (2).
  for (size_t length : {246u, 247u}) {
    size_t capacity = path.size();
    const std::wstring folder = L"\\" + std::wstring(length - 1, L'f');
    EXPECT_EQ(FwLibComposePath(path.data(), &capacity, folder.c_str(), kContainerName),
              length == 246 ? 11u : 2u);
    EXPECT_EQ(path[0] != L'\0', length == 246);
  }

  // Image names: 22 (version, "sfi") or 28 (key, "sfi") characters after the folder.
  const Bytes answer = LegacyAnswer(10, 6);
  const FwImageKey key{};
  Path name{};
  for (size_t over : {0u, 1u}) {
    const std::wstring folder(237 + over, L'f');
    EXPECT_EQ(FwLibComposeVersionName(answer.data(), 1, folder.c_str(), name.data(), path.data()),
              over);
    EXPECT_EQ(FwLibComposeKeyName(&key, 1, folder.c_str() + 6, name.data(), path.data()), over);
  }
}

}  // namespace
}  // namespace qrx::test
