#include "fwlib/fwdat.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <optional>
#include <string>

#include "fwlib/image_key.h"
#include "fwlib/image_loaders.h"
#include "fwlib_fixture.h"
#include "image/fw_image.h"

namespace qrx::test {
namespace {

using fwimage::FwdatEntrySpec;
using fwimage::FwdatSpec;
using fwimage::MatchKey;

const Bytes kKey = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};

Bytes KeyWith(size_t sameBytes) {
  Bytes key = kKey;
  for (size_t i = sameBytes; i < key.size(); ++i) key[i] ^= 0xFF;
  return key;
}

// Entry i carries an image of i + 1 bytes, so a found entry's size names it.
std::vector<FwdatEntrySpec> Entries(std::initializer_list<std::pair<uint8_t, Bytes>> rows) {
  std::vector<FwdatEntrySpec> entries;
  for (const auto& [kindByte, key] : rows) {
    const auto index = static_cast<uint8_t>(entries.size());
    FwdatEntrySpec& entry = entries.emplace_back();
    entry.kindByte = kindByte;
    entry.matchKey = MatchKey(key);
    entry.image = Bytes(index + 1u, static_cast<uint8_t>(0xC0 + index));
  }
  return entries;
}

Bytes Container(std::initializer_list<std::pair<uint8_t, Bytes>> rows, uint16_t magic = 0xFE33,
                uint8_t formatByte = 1, std::optional<uint8_t> count = std::nullopt) {
  FwdatSpec spec;
  spec.magic = magic;
  spec.formatByte = formatByte;
  spec.entryCount = count;
  return fwimage::BuildFwdat(Entries(rows), spec);
}

class Fwdat : public DriveFixture {
 protected:
  const wchar_t* Put(const Bytes& bytes) {
    drive_.WriteFile("box/c.dat", bytes);
    return kPath;
  }
  static constexpr const wchar_t* kPath = L"C:\\box\\c.dat";
};

TEST_F(Fwdat, FindEntryChecksTheHeaderAndPicksTheFirstFit) {
  struct Case {
    const char* name;
    Bytes file;
    uint8_t kind;
    Bytes key;
    uint32_t keyLength;
    FwdatError error;
    uint32_t index;
  };
  const Case cases[] = {
      {"duplicates", Container({{1, kKey}, {1, kKey}}), 1, kKey, 12, 0, 0},
      {"kind bits only", Container({{0x01, kKey}, {0x08, kKey}}), 0, kKey, 12, 0, 1},
      {"full key first", Container({{1, KeyWith(4)}, {1, KeyWith(10)}}), 1, kKey, 10, 0, 1},
      {"12 bytes fall back to 4", Container({{1, KeyWith(4)}, {1, KeyWith(10)}}), 1, kKey, 12, 0,
       0},
      {"9 bytes do not", Container({{1, KeyWith(4)}}), 1, kKey, 9, 1168, 0},
      {"short keys compare 8", Container({{1, KeyWith(7)}, {1, KeyWith(8)}}), 1, kKey, 3, 0, 1},
      {"wrong kind", Container({{1, kKey}}), 0, kKey, 12, 1168, 0},
      {"format 9", Container({{1, kKey}}, 0xFE33, 0x09), 1, kKey, 12, 0, 0},
      {"format 2", Container({{1, kKey}}, 0xFE33, 0x02), 1, kKey, 12, 87, 0},
      {"magic", Container({{1, kKey}}, 0xFE34), 1, kKey, 12, 87, 0},
      {"no entries", {0x33, 0xFE, 0x01, 0x00}, 1, kKey, 12, 87, 0},
      {"directory cut short", Container({{1, kKey}}, 0xFE33, 1, 3), 1, kKey, 12, 87, 0},
      {"header cut short", {0x33, 0xFE, 0x01}, 1, kKey, 12, 87, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    FwdatEntry entry{};
    entry[0] = c.kind;
    FileHandle handle = kNoFileHandle;
    const FwdatError error =
        FwdatFindEntry(Put(c.file), &handle, &entry, c.key.data(), c.keyLength);
    EXPECT_EQ(error, c.error);
    if (error == 0) {
      EXPECT_EQ(FwdatEntryImageSize(entry), c.index + 1);
    }
    // The handle stays with the caller on success and failure alike.
    EXPECT_TRUE(FileHandleIsOpen(handle));
    FwdatClose(handle);
  }
}

TEST_F(Fwdat, KeysAndArgumentsAreRefusedBeforeTheFileIsOpened) {
  FwdatEntry entry{};
  FileHandle handle = kNoFileHandle;
  const Bytes key13(13, 1);
  EXPECT_EQ(FwdatFindEntry(kPath, &handle, &entry, key13.data(), 13), 87u);
  EXPECT_EQ(handle, kNoFileHandle);
  EXPECT_EQ(FwdatFindEntry(kPath, &handle, &entry, nullptr, 12), 87u);
  EXPECT_EQ(FwdatFindEntry(kPath, &handle, &entry, kKey.data(), 12),
            static_cast<FwdatError>(ENOENT));
  EXPECT_EQ(handle, kInvalidFileHandle);

  uint64_t size = 0;
  uint8_t byte = 0;
  EXPECT_EQ(FwdatReadAt(kNoFileHandle, 1, &byte, 1, 0), 6u);
  ASSERT_EQ(FwdatOpen(Put({1, 2, 3}), &handle, &size), 0u);
  EXPECT_EQ(size, 3u);
  EXPECT_EQ(FwdatReadAt(handle, size, &byte, 0, 0), 87u);
  EXPECT_EQ(FwdatReadAt(handle, size, &byte, 1, 3), 87u);
  EXPECT_EQ(FwdatReadAt(handle, size, &byte, 1, ~uint64_t{0}), 87u);
  EXPECT_EQ(FwdatReadAt(handle, size, &byte, 1, 2), 0u);
  EXPECT_EQ(byte, 3);
  EXPECT_EQ(FwdatClose(handle), 0u);
  uint8_t* image = nullptr;
  EXPECT_EQ(FwdatQueryImage(1, kKey.data(), 12, &image, nullptr), 87u);
}

TEST_F(Fwdat, ReadImageBoundsTheBufferAndTheFileAndAlwaysCloses) {
  auto entries = Entries({{1, kKey}, {1, KeyWith(0)}});
  entries[1].size = 3;  // two bytes on file, and the file ends there
  const wchar_t* path = Put(fwimage::BuildFwdat(entries));
  struct Case {
    const Bytes& key;
    uint32_t bufferSize;
    FwdatError error;
  };
  const Bytes other = KeyWith(0);
  for (const Case& c :
       {Case{kKey, 0, 87}, Case{kKey, 1, 0}, Case{other, 2, 111}, Case{other, 3, 87}}) {
    FwdatEntry entry{};
    entry[0] = 1;
    FileHandle handle = kNoFileHandle;
    ASSERT_EQ(FwdatFindEntry(path, &handle, &entry, c.key.data(), 12), 0u);
    Bytes buffer(4, 0);
    uint32_t size = c.bufferSize;
    EXPECT_EQ(FwdatReadImage(path, &handle, &entry, buffer.data(), &size), c.error);
    EXPECT_EQ(handle, kNoFileHandle);
    if (c.error == 0) {
      EXPECT_EQ(buffer, (Bytes{0xC0, 0, 0, 0}));
    }
  }
}

TEST_F(Fwdat, ContainerLoaderServesTheSwappedKindAndFoldsFailures) {
  const Bytes answer = LegacyAnswer(0x37, 10, 6, 0);
  const Bytes answerKey(answer.begin(), answer.begin() + 8);
  auto entries = Entries({{0, answerKey}, {1, answerKey}, {2, answerKey}});
  const wchar_t* path = Put(fwimage::BuildFwdat(entries));
  struct Case {
    uint8_t isOperational;
    FwLibStatus status;
    uint32_t size;
  };
  for (const Case& c : {Case{0, 0, 2}, Case{1, 0, 1}, Case{2, 0, 3}, Case{3, 2, 0}}) {
    ContextPtr context = Classified(answer);
    context->isOperational = c.isOperational;
    EXPECT_EQ(LoadImageFromContainer(context.get(), path, 1), c.status);
    ASSERT_EQ(Get(context->imageSize), c.size);
    if (c.size == 0) continue;
    EXPECT_EQ(Bytes(context->imageData, context->imageData + c.size),
              Bytes(c.size, static_cast<uint8_t>(0xC0 + c.size - 1)));
    EXPECT_EQ(Get(context->imageData), Get(context->imageBuffer));
    EXPECT_EQ(Get(context->imageBorrowed), 0);
  }

  ContextPtr context = Classified(answer);
  EXPECT_EQ(LoadImageFromContainer(context.get(), L"C:\\box\\none.dat", 1), 11u);
  drive_.MakeDirectories("box/dir.dat");
  EXPECT_EQ(LoadImageFromContainer(context.get(), L"C:\\box\\dir.dat", 1), 11u);
  EXPECT_EQ(LoadImageFromContainer(nullptr, path, 1), 2u);
  EXPECT_EQ(LoadImageFromContainer(context.get(), Put({0x33, 0xFE, 0x01, 0x00}), 1), 14u);
  for (uint32_t lie : {100u, 0xFFFFFFF0u}) {
    entries[1].size = lie;
    EXPECT_EQ(LoadImageFromContainer(context.get(), Put(fwimage::BuildFwdat(entries)), 1), 14u);
    EXPECT_EQ(Get(context->imageBuffer), nullptr);
    EXPECT_EQ(Get(context->imageSize), 0u);
  }
}

TEST_F(Fwdat, ContainerLoaderMatchesLongFormsByImageKey) {
  ContextPtr context = Classified(TlvAnswer(90, 1));
  FwImageKey key{};
  ASSERT_EQ(FwLibBuildImageKey(context.get(), &key), 0u);
  const wchar_t* path =
      Put(fwimage::BuildFwdat(Entries({{1, Bytes(12, 0)}, {1, Bytes(key.begin(), key.end())}})));
  ASSERT_EQ(LoadImageFromContainer(context.get(), path, 0), 0u);
  EXPECT_EQ(Get(context->imageSize), 2u);
}

TEST_F(Fwdat, FileLoaderReadsWholeFiles) {
  const Bytes image = fwimage::BuildSfiImage({.bodyBytes = 700});
  drive_.WriteFile("fw/a.sfi", image);
  drive_.WriteFile("fw/empty.sfi", {});
  ContextPtr context = Classified(LegacyAnswer(0x37, 10, 6, 0));
  ASSERT_EQ(LoadImageFromFile(context.get(), L"C:\\fw\\a.sfi"), 0u);
  EXPECT_EQ(Bytes(context->imageData, context->imageData + context->imageSize), image);

  ContextPtr empty = Classified(LegacyAnswer(0x37, 10, 6, 0));
  ASSERT_EQ(LoadImageFromFile(empty.get(), L"C:\\fw\\empty.sfi"), 0u);
  EXPECT_EQ(Get(empty->imageSize), 0u);
  EXPECT_NE(Get(empty->imageData), nullptr);

  ContextPtr missing = Classified(LegacyAnswer(0x37, 10, 6, 0));
  EXPECT_EQ(LoadImageFromFile(missing.get(), L"C:\\fw\\b.sfi"), 11u);
  EXPECT_EQ(LoadImageFromFile(missing.get(), L"C:\\fw"), 11u);
  EXPECT_EQ(LoadImageFromFile(missing.get(), nullptr), 2u);
}

}  // namespace
}  // namespace qrx::test
