#include "fwlib/fwdat.h"

#include <gtest/gtest.h>

#include "fwlib/image_loaders.h"
#include "fwlib_fixture.h"
#include "platform/byte_order.h"

namespace qrx::test {
namespace {

const Bytes kKey = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13};
constexpr const wchar_t* kPath = L"C:\\c.dat";

// kKey with every byte from `same` on changed.
Bytes KeyWith(size_t same) {
  Bytes key = kKey;
  for (size_t i = same; i < key.size(); ++i) key[i] ^= 0xFF;
  return key;
}

using Fwdat = DriveFixture;

TEST_F(Fwdat, FindEntryChecksTheHeaderAndTakesTheFirstFit) {
  struct Case {
    const char* name;
    Bytes file;
    uint8_t kind;
    uint32_t keyLength;
    FwdatError error;
    uint32_t found = 0;  // the size of the entry found
  };
  // clang-format off
  const Case cases[] = {
      {"duplicates", Container({{1, kKey}, {1, kKey}}), 1, 12, 0, 1},
      {"kind bits only", Container({{0x01, kKey}, {0x08, kKey}}), 0, 12, 0, 2},
      {"whole key before its start", Container({{1, KeyWith(4)}, {1, KeyWith(10)}}), 1, 10, 0, 2},
      {"12 bytes fall back to 4", Container({{1, KeyWith(4)}, {1, KeyWith(11)}}), 1, 12, 0, 1},
      {"10 bytes fall back to 4", Container({{1, KeyWith(3)}, {1, KeyWith(4)}}), 1, 10, 0, 2},
      {"9 bytes compare 8", Container({{1, KeyWith(7)}, {1, KeyWith(8)}}), 1, 9, 0, 2},
      {"9 bytes and fewer do not fall back", Container({{1, KeyWith(4)}}), 1, 9, 1168},
      {"13-byte key", Container({{1, kKey}}), 1, 13, 87},
      {"format bits 9", Container({{1, kKey}}, {.formatByte = 9, .entryCount = 1}), 1, 12, 0, 1},
      {"format 2", Container({{1, kKey}}, {.formatByte = 2, .entryCount = 1}), 1, 12, 87},
      {"byte-swapped magic", Container({{1, kKey}}, {.magic = 0x33FE, .entryCount = 1}), 1, 12, 87},
      {"no entries", Container({{1, kKey}}, {.entryCount = 0}), 1, 12, 87},
      {"directory cut short", Container({{1, kKey}}, {.entryCount = 3}), 1, 12, 87},
      {"zero-byte file", {}, 1, 12, 87},
  };
  // clang-format on
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    drive_.WriteFile("c.dat", c.file);
    FwdatEntry entry{c.kind};
    FileHandle handle = kNoFileHandle;
    EXPECT_EQ(FwdatFindEntry(kPath, &handle, &entry, kKey.data(), c.keyLength), c.error);
    EXPECT_EQ(c.error == 0 ? FwdatEntryImageSize(entry) : 0u, c.found);
    // A bad key is refused before opening; otherwise the caller owns the handle.
    EXPECT_EQ(FileHandleIsOpen(handle), c.keyLength <= 12);
    if (FileHandleIsOpen(handle)) FwdatClose(handle);
  }
}

// Modes 0, 1 and 2 take entry kinds 1, 0 and 2 (the entries of 2, 1 and 3
// bytes); mode 3 has no kind (2).
TEST_F(Fwdat, ContainerLoaderServesTheSwappedKindAndRefusesEntriesPastTheEnd) {
  const Bytes answer = LegacyAnswer(10, 6);
  Bytes file = Container({{0, answer}, {1, answer}, {2, answer}});
  drive_.WriteFile("c.dat", file);
  for (uint8_t mode : {0, 1, 2, 3}) {
    const uint32_t size = std::array{2, 1, 3, 0}[mode];
    ContextPtr context = Classified(answer);
    context->isOperational = mode;
    EXPECT_EQ(LoadImageFromContainer(context.get(), kPath, 1), size == 0 ? 2u : 0u);
    EXPECT_EQ(Get(context->imageSize), size);
  }

  for (uint32_t lie : {100u, 0xFFFFFFF0u}) {
    WriteLe32(file, 4 + 23 + 6, lie);  // the size field of entry 1
    drive_.WriteFile("c.dat", file);
    // Refused before anything is allocated for the lying entry.
    EXPECT_EQ(LoadImageFromContainer(Classified(answer).get(), kPath, 1), 14u);
  }
}

}  // namespace
}  // namespace qrx::test
