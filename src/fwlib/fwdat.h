#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "platform/file_io.h"

namespace qrx {

// Primitives for FWDAT containers. They answer platform error numbers
// (0 = success); the loaders in image_loaders.h fold them into library
// statuses.
using FwdatError = uint32_t;
constexpr FwdatError kFwdatOk = 0;
constexpr FwdatError kFwdatInvalidHandle = 6;
constexpr FwdatError kFwdatNotEnoughMemory = 14;
constexpr FwdatError kFwdatInvalidParameter = 87;
constexpr FwdatError kFwdatBufferTooSmall = 111;
constexpr FwdatError kFwdatNotFound = 1168;

// File layout: header, then count directory entries back to back.
constexpr uint16_t kFwdatMagic = 0xFE33;
constexpr size_t kFwdatHeaderSize = 4;
constexpr size_t kFwdatMagicOffset = 0;
constexpr size_t kFwdatFormatOffset = 2;
constexpr size_t kFwdatCountOffset = 3;
constexpr uint8_t kFwdatFormatMask = 0x07;
constexpr uint8_t kFwdatDirectoryFormat = 1;

constexpr size_t kFwdatEntrySize = 23;
constexpr size_t kFwdatEntryKindOffset = 0;
constexpr size_t kFwdatEntryImageOffsetOffset = 2;
constexpr size_t kFwdatEntryImageSizeOffset = 6;
constexpr size_t kFwdatEntryMatchKeyOffset = 10;
constexpr size_t kFwdatMatchKeySize = 13;
constexpr uint8_t kFwdatKindMask = 0x07;

// Compare lengths: keys up to 9 bytes compare 8; 10 to 12 compare all;
// a miss with a long key retries on the first 4 bytes.
constexpr uint32_t kFwdatShortKeyCompare = 8;
constexpr uint32_t kFwdatShortKeyLimit = 9;
constexpr uint32_t kFwdatMaxKeyLength = 12;
constexpr uint32_t kFwdatFallbackCompare = 4;

using FwdatEntry = std::array<uint8_t, kFwdatEntrySize>;

uint8_t FwdatEntryKind(const FwdatEntry& entry);
uint32_t FwdatEntryImageOffset(const FwdatEntry& entry);
uint32_t FwdatEntryImageSize(const FwdatEntry& entry);

// The entry kind serving a controller mode: a bootloader (isOperational 0)
// takes kind 1 and operational firmware (1) kind 0, deliberately swapped;
// 2 takes 2; anything else has no kind.
std::optional<uint8_t> FwdatKindForMode(uint8_t isOperational);

// Opens the file for reading and answers its size. The handle and size are
// cleared first; a failed open leaves kInvalidFileHandle.
FwdatError FwdatOpen(const wchar_t* path, FileHandle* handle, uint64_t* fileSize);

// Positioned read of count bytes at offset, refused when it would pass
// fileSize. The number of bytes actually read is not checked here.
FwdatError FwdatReadAt(FileHandle handle, uint64_t fileSize, uint8_t* buffer, uint64_t count,
                       uint64_t offset);

FwdatError FwdatClose(FileHandle handle);

// Opens the container and copies the first directory entry whose kind bits
// equal those of entry's kind byte and whose match key begins with key into
// entry. Keys shorter than 8 bytes must still point at 8 readable bytes.
// The handle is left open in its slot on success and on failure: the caller
// owns it (FwdatReadImage closes it).
FwdatError FwdatFindEntry(const wchar_t* path, FileHandle* handle, FwdatEntry* entry,
                          const uint8_t* key, uint32_t keyLength);

// Reads the entry's image into buffer (*bufferSize bytes available) and
// stores the image size in *bufferSize. Always closes the handle in the slot.
FwdatError FwdatReadImage(const wchar_t* path, FileHandle* handle, const FwdatEntry* entry,
                          uint8_t* buffer, uint32_t* bufferSize);

// Looking an image up by kind and key in an already loaded container is not
// supported: always kFwdatInvalidParameter, and nothing is touched.
FwdatError FwdatQueryImage(uint8_t kind, const uint8_t* key, uint32_t keyLength, uint8_t** image,
                           uint32_t* imageSize);

}  // namespace qrx
