#include "fwlib/image_loaders.h"

#include <new>
#include <string>

#include "fwlib/fwdat.h"
#include "fwlib/image_key.h"
#include "platform/file_io.h"
#include "platform/host_path.h"
#include "platform/trace.h"

namespace qrx {

namespace {

constexpr const char* kTag = "FWLIB";

std::string g_loadedPath;

bool ContextIsLive(const FwLibContext* context) {
  return context != nullptr && context->magic == kFwLibContextMagic;
}

bool ContainerOpens(const wchar_t* path) {
  FileHandle handle = kNoFileHandle;
  const std::string hostPath = HostPathFromWindows(path);
  if (FileOpenForReading(hostPath.c_str(), &handle) != 0) return false;
  FileClose(handle);
  return true;
}

// Steps from the directory lookup on; the caller closes whatever handle is
// left in the slot.
FwLibStatus LoadEntry(FwLibContext* context, const wchar_t* path, uint8_t useContextKey,
                      FwdatEntry& entry, FileHandle& handle) {
  FwLibStatus keyStatus = kFwLibSuccess;
  FwImageKey imageKey{};
  const uint8_t* key = context->versionData;
  uint32_t keyLength = context->versionLength;
  if (useContextKey == 0) {
    keyStatus = FwLibBuildImageKey(context, &imageKey);
    key = imageKey.data();
    keyLength = kFwImageKeySize;
  }

  if (FwdatFindEntry(path, &handle, &entry, key, keyLength) != kFwdatOk) return kFwLibIoFailure;
  if (FwdatKindForMode(context->isOperational) != FwdatEntryKind(entry)) return kFwLibIoFailure;

  const uint32_t imageSize = FwdatEntryImageSize(entry);
  // An entry that reaches past the end of the file would fail the read
  // below with the same status; refusing it first spares allocating what a
  // lying directory asks for.
  uint64_t fileSize = 0;
  if (FileGetSize(handle, &fileSize) != 0 ||
      uint64_t{FwdatEntryImageOffset(entry)} + imageSize > fileSize) {
    TraceRecord(kTraceLevelError, kTag, "entry of %u bytes passes the end of the container",
                imageSize);
    return kFwLibIoFailure;
  }

  context->imageSize = imageSize;
  auto* buffer = new (std::nothrow) uint8_t[imageSize];
  if (buffer == nullptr) return kFwLibOutOfMemory;
  context->imageBuffer = buffer;

  uint32_t bufferSize = imageSize;
  if (FwdatReadImage(path, &handle, &entry, buffer, &bufferSize) != kFwdatOk) {
    delete[] buffer;
    context->imageBuffer = nullptr;
    context->imageSize = 0;
    return kFwLibIoFailure;
  }
  // A short answer keeps the buffer in the context; the release frees it.
  if (bufferSize != imageSize) return kFwLibIoFailure;

  context->imageData = buffer;
  context->imageOffset = 0;
  context->imageBorrowed = 0;
  return keyStatus;
}

}  // namespace

FwLibStatus LoadImageFromContainer(FwLibContext* context, const wchar_t* containerPath,
                                   uint8_t useContextKey) {
  if (!ContextIsLive(context)) return kFwLibInvalidParameter;
  if (containerPath == nullptr || !ContainerOpens(containerPath)) return kFwLibNoViableFirmware;
  const std::optional<uint8_t> kind = FwdatKindForMode(context->isOperational);
  if (!kind) return kFwLibInvalidParameter;

  FwdatEntry entry{};
  entry[kFwdatEntryKindOffset] = *kind;
  FileHandle handle = kNoFileHandle;
  const FwLibStatus status = LoadEntry(context, containerPath, useContextKey, entry, handle);
  if (FileHandleIsOpen(handle)) FwdatClose(handle);
  if (status == kFwLibSuccess) g_loadedPath = HostPathFromWindows(containerPath);
  TraceRecord(status == kFwLibSuccess ? kTraceLevelInfo : kTraceLevelError, kTag,
              "container load: status %u", status);
  return status;
}

namespace {

FwLibStatus ReadWholeFile(FwLibContext* context, FileHandle handle) {
  uint64_t fileSize = 0;
  if (FileGetSize(handle, &fileSize) != 0) return kFwLibIoFailure;
  // The image size is the low 32 bits of the file size, as designed.
  const auto imageSize = static_cast<uint32_t>(fileSize);
  context->imageSize = imageSize;
  auto* buffer = new (std::nothrow) uint8_t[imageSize];
  if (buffer == nullptr) return kFwLibOutOfMemory;
  context->imageBuffer = buffer;

  uint32_t got = 0;
  if (FileReadAt(handle, 0, buffer, imageSize, &got) != 0 || got != imageSize) {
    delete[] buffer;
    context->imageBuffer = nullptr;
    return kFwLibIoFailure;
  }
  context->imageData = buffer;
  context->imageOffset = 0;
  context->imageBorrowed = 0;
  return kFwLibSuccess;
}

}  // namespace

FwLibStatus LoadImageFromFile(FwLibContext* context, const wchar_t* path) {
  if (!ContextIsLive(context) || path == nullptr) return kFwLibInvalidParameter;
  FileHandle handle = kNoFileHandle;
  const std::string hostPath = HostPathFromWindows(path);
  if (FileOpenForReading(hostPath.c_str(), &handle) != 0) {
    TraceRecord(kTraceLevelError, kTag, "cannot open %s", hostPath.c_str());
    return kFwLibNoViableFirmware;
  }
  const FwLibStatus status = ReadWholeFile(context, handle);
  FileClose(handle);
  if (status == kFwLibSuccess) g_loadedPath = hostPath;
  TraceRecord(status == kFwLibSuccess ? kTraceLevelInfo : kTraceLevelError, kTag,
              "file load %s: status %u, %u bytes", hostPath.c_str(), status, context->imageSize);
  return status;
}

const std::string& LoadedFirmwarePath() {
  return g_loadedPath;
}

void ForgetLoadedFirmwarePath() {
  g_loadedPath.clear();
}

}  // namespace qrx
