#include "fwlib/firmware_location.h"

#include <gtest/gtest.h>

#include <array>
#include <string>

#include "fwlib/bounded_format.h"
#include "fwlib/firmware_locators.h"
#include "fwlib/image_key.h"
#include "fwlib_fixture.h"
#include "image/fw_image.h"

namespace qrx::test {
namespace {

using Path = std::array<wchar_t, kFwPathChars>;

Bytes Sfi(uint32_t seed, uint8_t patch = 1) {
  fwimage::SignedImageSpec spec;
  spec.bodyBytes = 300 + seed;
  spec.seed = seed;
  spec.patchNumber = patch;
  return fwimage::BuildSfiImage(spec);
}

Bytes ContainerFor(std::span<const uint8_t> key, uint8_t kind, const Bytes& image) {
  std::vector<fwimage::FwdatEntrySpec> entries(1);
  entries[0].kindByte = kind;
  entries[0].matchKey = fwimage::MatchKey(key);
  entries[0].image = image;
  return fwimage::BuildFwdat(entries);
}

// A folder of exactly length characters, "\xxx...\yyy", with a container
// in it on drive C.
std::wstring LongFolderWithContainer(const TempDir& drive, size_t length) {
  std::string folder;
  while (length - folder.size() > 60) folder += "\\" + std::string(49, 'x');
  folder += "\\" + std::string(length - folder.size() - 1, 'y');
  std::string relative = folder.substr(1) + "/qrxfw.dat";
  for (char& c : relative) c = c == '\\' ? '/' : c;
  drive.WriteFile(relative, Bytes{1});
  return std::wstring(folder.begin(), folder.end());
}

class Location : public DriveFixture {
 protected:
  // Initialises with file search; answers the status and the loaded image.
  FwLibStatus Run(const Bytes& answer, Bytes* image = nullptr) {
    FwLibContext* raw = nullptr;
    const FwLibStatus status =
        FwLibInitialize(answer.data(), static_cast<uint8_t>(answer.size()), 1, &raw);
    ContextPtr context(raw);
    if (image != nullptr && raw != nullptr) {
      image->assign(raw->imageData, raw->imageData + raw->imageSize);
    }
    return status;
  }
  void Own(const std::string& name, const Bytes& bytes) {
    drive_.WriteFile(std::string(kOwnHostFolder) + name, bytes);
  }
};

TEST_F(Location, SearchesContainerThenNamedImageThenFallback) {
  const Bytes answer = LegacyAnswer(0x37, 7, 6, 0);  // variant 7 has a family directory
  const std::string versionName = "370703065122142000.sfi";
  const Bytes fromFamily = Sfi(1), fromContainer = Sfi(2), fromNamed = Sfi(3),
              fromFallback = Sfi(4);
  const std::span<const uint8_t> key(answer.data(), 8);
  struct Case {
    const char* name;
    bool family, container, named, fallback;
    const Bytes* expected;
  };
  const Case cases[] = {
      {"all", true, true, true, true, &fromContainer},
      {"no container", true, false, true, true, &fromNamed},
      {"fallback only", true, false, false, true, &fromFallback},
      {"family directory only", true, false, false, false, nullptr},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    drive_.Remove("Program Files");
    drive_.Remove("Program Files (x86)");
    if (c.family) {
      drive_.WriteFile(
          "Program Files (x86)/Norix/Bluetooth/drivers/qrxuart/QB/Win10_UWDRelease/x64/qrxfw.dat",
          ContainerFor(key, 1, fromFamily));
    }
    if (c.container) Own("qrxfw.dat", ContainerFor(key, 1, fromContainer));
    if (c.named) Own(versionName, fromNamed);
    if (c.fallback) Own("Fw.sfi", fromFallback);
    Bytes image;
    EXPECT_EQ(Run(answer, &image), c.expected != nullptr ? 0u : 11u);
    if (c.expected != nullptr) {
      EXPECT_EQ(image, *c.expected);
    }
  }

  // A container without this controller's entry does not end the search.
  Own("qrxfw.dat", ContainerFor(key, 0, fromContainer));
  Own(versionName, fromNamed);
  Bytes image;
  EXPECT_EQ(Run(answer, &image), 0u);
  EXPECT_EQ(image, fromNamed);
}

TEST_F(Location, LongFormsUseTheImageKeyAndTheModesExtension) {
  const Bytes boot = TlvAnswer(90, 1);
  FwImageKey key{};
  ASSERT_EQ(FwLibBuildImageKey(Classified(boot).get(), &key), 0u);
  std::string keyName;
  for (uint8_t b : key)
    keyName += "0123456789abcdef"[b >> 4], keyName += "0123456789abcdef"[b & 15];

  Own(keyName + ".sfi", Sfi(5));
  Bytes image;
  EXPECT_EQ(Run(boot, &image), 0u);
  EXPECT_EQ(image, Sfi(5));
  Own("qrxfw.dat", ContainerFor(key, 1, Sfi(6)));
  EXPECT_EQ(Run(boot, &image), 0u);
  EXPECT_EQ(image, Sfi(6));

  const Bytes bseq = fwimage::BuildBseqImage(fwimage::SampleBseqCommands(3, 1), true);
  Own("Fw.bseq", bseq);
  EXPECT_EQ(Run(TlvAnswer(80, 0), &image), 0u);
  EXPECT_EQ(image, bseq);
}

TEST_F(Location, LegacyPatchLevelsDecideTheStatus) {
  struct Case {
    uint8_t hardwareVariant, controllerPatch, imagePatch;
    FwLibStatus status;
  };
  // Each of these hands back a live context, 6 and 15 included.
  for (const Case& c : {Case{10, 3, 3, 6}, Case{10, 0, 4, 0}, Case{10, 2, 4, 15}, Case{10, 5, 4, 6},
                        Case{11, 3, 3, 0}}) {
    Own("Fw.sfi", Sfi(7, c.imagePatch));
    const Bytes answer = LegacyAnswer(0x37, c.hardwareVariant, 6, c.controllerPatch);
    FwLibContext* raw = nullptr;
    EXPECT_EQ(FwLibInitialize(answer.data(), 9, 1, &raw), c.status) << int{c.controllerPatch};
    EXPECT_NE(raw, nullptr);
    FwLibRelease(raw);
  }
  Own("Fw.sfi", {0x01, 0xFC, 0x01, 0x00});  // nothing after the first command
  EXPECT_EQ(Run(LegacyAnswer(0x37, 10, 6, 0)), 12u);
}

TEST_F(Location, PathsFitIn260CharactersOrFail) {
  Path path{};
  const std::wstring fits(259, L'a');
  EXPECT_EQ(FwFormatBounded(path.data(), path.size(), L"%ls", fits.c_str()), 259);
  EXPECT_EQ(FwFormatBounded(path.data(), path.size(), L"%lsb", fits.c_str()), -1);
  EXPECT_EQ(path[0], L'\0');

  // "C:\" folder "\qrxfw.dat": 13 characters around the folder.
  for (size_t folderLength : {246u, 247u}) {
    const std::wstring folder = LongFolderWithContainer(drive_, folderLength);
    size_t capacity = path.size();
    const FwLibStatus status =
        FwLibComposePath(path.data(), &capacity, folder.c_str(), kContainerName);
    EXPECT_EQ(status, folderLength == 246 ? 0u : 2u);
    EXPECT_EQ(capacity, folderLength == 246 ? 259u : 0u);
  }
  size_t capacity = path.size();
  EXPECT_EQ(FwLibComposePath(path.data(), &capacity, kOwnFolder, kContainerName), 11u);
  EXPECT_EQ(std::wstring(path.data()), L"C:\\\\Program Files\\Norix\\Bluetooth\\qrxfw.dat");
  EXPECT_EQ(capacity, 0u);

  // Image names: 22 (version, "sfi") or 28 (key, "sfi") characters after the folder.
  const Bytes answer = LegacyAnswer(0x37, 10, 6, 0);
  const FwImageKey key{};
  Path name{};
  for (size_t over : {0u, 1u}) {
    const std::wstring folder(237 + over, L'f');
    EXPECT_EQ(FwLibComposeVersionName(answer.data(), 1, folder.c_str(), name.data(), path.data()),
              over);
    EXPECT_EQ(FwLibComposeKeyName(&key, 1, folder.c_str() + 6, name.data(), path.data()), over);
  }
  EXPECT_EQ(FwLibComposeVersionName(answer.data(), 0, L"\\d\\", name.data(), path.data()), 0u);
  EXPECT_EQ(std::wstring(path.data()),
            L"\\d\\370a030651221420"
            L"00.bseq");
}

TEST_F(Location, FamilyDirectoriesNeverPassTheFileTest) {
  Path directory{};
  drive_.MakeDirectories(
      "Program Files (x86)/Norix/Bluetooth/drivers/qrxuart/FNL/Win10_UWDRelease/x64");
  EXPECT_FALSE(FwLibDriverDirectory(20, directory.data()));
  EXPECT_EQ(
      std::wstring(directory.data()),
      L"\\Program Files (x86)\\Norix\\Bluetooth\\drivers\\qrxuart\\FNL\\Win10_UWDRelease\\x64");
  for (uint8_t variant : {0, 9, 10, 21}) {
    directory[0] = L'\0';
    EXPECT_FALSE(FwLibDriverDirectory(variant, directory.data()));
    EXPECT_EQ(directory[0], L'\0');
  }
  wchar_t letter = L'?';
  EXPECT_FALSE(FwLibSystemDriveLetter(&letter));
}

TEST_F(Location, FurtherLocators) {
  EXPECT_EQ(std::wstring(FwLibProgramFolder()), L"Program Files\\Norix\\Bluetooth");
  EXPECT_EQ(std::wstring(FwLibDriversFolder()), L"Windows\\system32\\drivers");

  Path path{};
  EXPECT_EQ(FwLibContainerNameIn(std::wstring(250, L'f').c_str(), path.data()), 0u);
  EXPECT_EQ(FwLibContainerNameIn(std::wstring(251, L'f').c_str(), path.data()), 1u);

  const Bytes answer = LegacyAnswer(0x02, 0x10, 6, 0);
  EXPECT_EQ(FwLibComposeObjectVersionPath(answer.data(), 1, L"\\fw", path.data()), 11u);
  EXPECT_EQ(std::wstring(path.data()),
            L"\\??\\C:\\\\fw\\0210030651221420"
            L"00.sfi");
  drive_.WriteFile("fw/021003065122142000.sfi", Bytes{1});
  EXPECT_EQ(FwLibComposeObjectVersionPath(answer.data(), 1, L"\\fw", path.data()), 0u);

  ContextPtr context = Classified(answer);
  EXPECT_EQ(FwLibLoadSupplementaryImage(context.get()), 11u);
  drive_.WriteFile("Windows/system32/drivers/sup_z0_image.tsfi", Bytes{9, 8, 7});
  ASSERT_EQ(FwLibLoadSupplementaryImage(context.get()), 0u);
  EXPECT_EQ(Bytes(context->imageData, context->imageData + context->imageSize), (Bytes{9, 8, 7}));
}

}  // namespace
}  // namespace qrx::test
