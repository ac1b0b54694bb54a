#include "fwlib/fwdat.h"

#include <gtest/gtest.h>

#include "fwlib/image_loaders.h"
#include "fwlib_fixture.h"
#include "platform/byte_order.h"

namespace qrx::test {
namespace {

const Bytes kKey = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13};

// kKey with every byte from `same` on changed.
Bytes KeyWith(size_t same) {
  Bytes key = kKey;
  for (size_t i = same; i < key.size(); ++i) key[i] ^= 0xFF;
  return key;
}

class Fwdat : public DriveFixture {
 protected:
  const wchar_t* Put(const Bytes& bytes) {
    drive_.WriteFile("box/c.dat", bytes);
    return L"C:\\box\\c.dat";
  }
};

TEST_F(Fwdat, FindEntryChecksTheHeaderAndTakesTheFirstFit) {
  const Bytes one = Container({{1, kKey}});
  const auto with = [&one](size_t at, uint8_t value) {  // one header byte changed
    Bytes file = one;
    file[at] = value;
    return file;
  };
  struct Case {
    const char* name;
    Bytes file;
    uint8_t kind;
    uint32_t keyLength;
    FwdatError error;
    uint32_t found = 0;  // the size of the entry found
  };
  const Case cases[] = {
      {"duplicates", Container({{1, kKey}, {1, kKey}}), 1, 12, 0, 1},
      {"kind bits only", Container({{0x01, kKey}, {0x08, kKey}}), 0, 12, 0, 2},
      {"whole key before its start", Container({{1, KeyWith(4)}, {1, KeyWith(10)}}), 1, 10, 0, 2},
      {"12 bytes fall back to 4", Container({{1, KeyWith(4)}, {1, KeyWith(11)}}), 1, 12, 0, 1},
      {"9 bytes compare 8", Container({{1, KeyWith(7)}, {1, KeyWith(8)}}), 1, 9, 0, 2},
      {"9 bytes and fewer do not fall back", Container({{1, KeyWith(4)}}), 1, 9, 1168},
      {"wrong kind", one, 0, 12, 1168},
      {"13-byte key", one, 1, 13, 87},
      {"format bits 9", with(2, 0x09), 1, 12, 0, 1},
      {"format 2", with(2, 0x02), 1, 12, 87},
      {"magic", with(0, 0x34), 1, 12, 87},
      {"no entries", with(3, 0), 1, 12, 87},
      {"directory cut short", with(3, 3), 1, 12, 87},
      {"zero-byte file", {}, 1, 12, 87},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    FwdatEntry entry{};
    entry[0] = c.kind;
    FileHandle handle = kNoFileHandle;
    EXPECT_EQ(FwdatFindEntry(Put(c.file), &handle, &entry, kKey.data(), c.keyLength), c.error);
    EXPECT_EQ(c.error == 0 ? FwdatEntryImageSize(entry) : 0u, c.found);
    // A bad key is refused before opening; otherwise the caller owns the handle.
    EXPECT_EQ(FileHandleIsOpen(handle), c.keyLength <= 12);
    if (FileHandleIsOpen(handle)) FwdatClose(handle);
  }
}

TEST_F(Fwdat, ContainerLoaderServesTheSwappedKindAndRefusesEntriesPastTheEnd) {
  const Bytes answer = LegacyAnswer(10, 6);
  Bytes file = Container({{0, answer}, {1, answer}, {2, answer}});
  const wchar_t* path = Put(file);
  struct Case {
    uint8_t isOperational;
    FwLibStatus status;
    uint32_t entry;  // 0 for none
  };
  for (const Case& c : {Case{0, 0, 2}, Case{1, 0, 1}, Case{2, 0, 3}, Case{3, 2, 0}}) {
    ContextPtr context = Classified(answer);
    context->isOperational = c.isOperational;
    EXPECT_EQ(LoadImageFromContainer(context.get(), path, 1), c.status);
    ASSERT_EQ(Get(context->imageSize), c.entry);
    if (c.entry == 0) continue;
    EXPECT_EQ(Bytes(context->imageData, context->imageData + c.entry),
              Bytes(c.entry, static_cast<uint8_t>(0xC0 + c.entry - 1)));
  }

  ContextPtr context = Classified(answer);
  for (uint32_t lie : {100u, 0xFFFFFFF0u}) {
    WriteLe32(file, 4 + 23 + 6, lie);  // the size field of entry 1
    EXPECT_EQ(LoadImageFromContainer(context.get(), Put(file), 1), 14u);
    EXPECT_EQ(Get(context->imageBuffer), nullptr);
    EXPECT_EQ(Get(context->imageSize), 0u);
  }
}

TEST_F(Fwdat, FileLoaderTakesAnEmptyFileButNotADirectory) {
  drive_.WriteFile("fw/empty.sfi", {});
  drive_.MakeDirectories("fw/dir.sfi");
  ContextPtr context = Classified(LegacyAnswer(10, 6));
  EXPECT_EQ(LoadImageFromFile(context.get(), L"C:\\fw\\dir.sfi"), 11u);
  ASSERT_EQ(LoadImageFromFile(context.get(), L"C:\\fw\\empty.sfi"), 0u);
  EXPECT_EQ(Get(context->imageSize), 0u);
  EXPECT_NE(Get(context->imageData), nullptr);
}

}  // namespace
}  // namespace qrx::test
