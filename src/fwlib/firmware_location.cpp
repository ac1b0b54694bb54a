#include "fwlib/firmware_location.h"

#include <algorithm>
#include <array>
#include <cwchar>
#include <memory>
#include <new>
#include <string>

#include "fwlib/bounded_format.h"
#include "fwlib/image_loaders.h"
#include "fwlib/version_answer.h"
#include "platform/file_io.h"
#include "platform/host_path.h"
#include "platform/system_query.h"
#include "platform/trace.h"
#include "run/firmware_type.h"
#include "run/run_options.h"

namespace qrx {

namespace {

constexpr const char* kTag = "FWLIB";

struct FamilyDirectory {
  uint8_t hardwareVariant;
  const wchar_t* directory;
};

constexpr std::array<FamilyDirectory, 8> kFamilyDirectories = {{
    {7, L"QB\\Win10_UWDRelease\\x64"},
    {8, L"TVK\\Win10_UWDRelease\\x64"},
    {11, L"GLD\\Win10_UWDRelease\\x64"},
    {12, L"PRW\\Win10_UWDRelease\\x64"},
    {17, L"KST\\Win10_UWDRelease\\x64"},
    {18, L"MOV\\Win10_UWDRelease\\x64"},
    {19, L"BRX\\Win10_UWDRelease\\x64"},
    {20, L"FNL\\Win10_UWDRelease\\x64"},
}};

// First answer bytes that name the image file after the version fields;
// every other value names it after the image key.
constexpr std::array<uint8_t, 4> kVersionNamingFirstBytes = {1, 2, 3, 0x37};

constexpr const wchar_t* kVersionNameFormat = L"%.2x%.2x%.2x%.2x%.2x%.2x%.2x%.2x00.%ls";
constexpr const wchar_t* kKeyNameFormat = L"%.2x%.2x%.2x%.2x%.2x%.2x%.2x%.2x%.2x%.2x%.2x%.2x.%ls";
constexpr const wchar_t* kDrivePathFormat = L"%lc:\\%ls\\%ls";
constexpr const wchar_t* kCurrentDirectoryFormat = L".\\%ls";

// The machine setting that names the system drive.
constexpr const wchar_t* kSystemRootKey = L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion";
constexpr const wchar_t* kSystemRootValue = L"SystemRoot";
constexpr wchar_t kDefaultDrive = L'C';

const wchar_t* Extension(uint8_t bootloader) {
  return bootloader != 0 ? kBootloaderExtension : kOperationalExtension;
}

bool UsesVersionNaming(uint8_t firstByte) {
  return std::ranges::find(kVersionNamingFirstBytes, firstByte) != kVersionNamingFirstBytes.end();
}

FwLibStatus JoinImagePath(const wchar_t* folder, const wchar_t* name, wchar_t* path) {
  return FwFormatBounded(path, kFwPathChars, kFwJoinFormat, folder, name) < 0
             ? kFwLibInsufficientBuffer
             : kFwLibSuccess;
}

}  // namespace

int FwLibFileExists(const wchar_t* path) {
  if (path == nullptr) return 0;
  FileHandle handle = kNoFileHandle;
  const std::string hostPath = HostPathFromWindows(path);
  if (FileOpenForReading(hostPath.c_str(), &handle) != 0) return 0;
  FileClose(handle);
  return 1;
}

bool FwLibSystemDriveLetter(wchar_t* letter) {
  if (letter == nullptr) return false;
  // The wide names go to the narrow interface, which therefore sees "S" and
  // "S": the lookup fails and callers use C. Intended.
  const auto* key = reinterpret_cast<const char*>(kSystemRootKey);
  const auto* value = reinterpret_cast<const char*>(kSystemRootValue);
  uint32_t size = 0;
  if (!QueryMachineRegistryValue(key, value, nullptr, &size)) return false;
  std::unique_ptr<uint8_t[]> data(new (std::nothrow) uint8_t[size_t{size} + 2]());
  if (!data || !QueryMachineRegistryValue(key, value, data.get(), &size)) return false;
  *letter = static_cast<wchar_t>(data[0]);
  return true;
}

bool FwLibDriverDirectory(uint8_t hardwareVariant, wchar_t* output) {
  if (output == nullptr || hardwareVariant == 0) return false;
  const auto* row =
      std::ranges::find(kFamilyDirectories, hardwareVariant, &FamilyDirectory::hardwareVariant);
  if (row == kFamilyDirectories.end()) return false;
  if (FwFormatBounded(output, kFwPathChars, kFwJoinFormat, kDriverRoot, row->directory) < 0) {
    return false;
  }
  // The existence test is for files, so a directory never passes it and the
  // search goes on to the own folder. Intended.
  return FwLibFileExists(output) == 1;
}

FwLibStatus FwLibComposePath(wchar_t* output, size_t* capacity, const wchar_t* folder,
                             const wchar_t* fileName) {
  if (output == nullptr || capacity == nullptr || fileName == nullptr) {
    return kFwLibInvalidParameter;
  }
  int written = 0;
  if (folder != nullptr) {
    const wchar_t drive = FwLibDriveLetterOrDefault();
    // The folders begin with a backslash, so the path has a doubled
    // separator after the drive. Intended.
    written = FwFormatBounded(output, *capacity, kDrivePathFormat, static_cast<wint_t>(drive),
                              folder, fileName);
  } else {
    written = FwFormatBounded(output, *capacity, kCurrentDirectoryFormat, fileName);
  }
  if (written < 0) {
    *capacity = 0;
    return kFwLibInvalidParameter;
  }
  if (FwLibFileExists(output) == 0) {
    *capacity = 0;
    return kFwLibNoViableFirmware;
  }
  *capacity = static_cast<size_t>(written);
  return kFwLibSuccess;
}

FwLibStatus FwLibOpenContainerIn(FwLibContext* context, const wchar_t* folder,
                                 uint8_t versionNaming) {
  std::array<wchar_t, kFwPathChars> path{};
  size_t capacity = path.size();
  const FwLibStatus status = FwLibComposePath(path.data(), &capacity, folder, kContainerName);
  if (status != kFwLibSuccess) return status;
  return LoadImageFromContainer(context, path.data(), versionNaming);
}

FwLibStatus FwLibComposeVersionName(const uint8_t* answer, uint8_t bootloader,
                                    const wchar_t* folder, wchar_t* name, wchar_t* path) {
  if (answer == nullptr || folder == nullptr || name == nullptr || path == nullptr) {
    return kFwLibInsufficientBuffer;
  }
  const auto b = [answer](size_t i) { return static_cast<unsigned>(answer[i]); };
  if (FwFormatBounded(name, kFwPathChars, kVersionNameFormat, b(0), b(1), b(2), b(3), b(4), b(5),
                      b(6), b(7), Extension(bootloader)) < 0) {
    return kFwLibInsufficientBuffer;
  }
  return JoinImagePath(folder, name, path);
}

FwLibStatus FwLibComposeKeyName(const FwImageKey* key, uint8_t bootloader, const wchar_t* folder,
                                wchar_t* name, wchar_t* path) {
  if (key == nullptr || folder == nullptr || name == nullptr || path == nullptr) {
    return kFwLibInsufficientBuffer;
  }
  const auto b = [key](size_t i) { return static_cast<unsigned>((*key)[i]); };
  if (FwFormatBounded(name, kFwPathChars, kKeyNameFormat, b(0), b(1), b(2), b(3), b(4), b(5), b(6),
                      b(7), b(8), b(9), b(10), b(11), Extension(bootloader)) < 0) {
    return kFwLibInsufficientBuffer;
  }
  return JoinImagePath(folder, name, path);
}

namespace {

// The file --firmware names replaces the search. A container's entry is still
// chosen by kind and key; any other file is the image itself.
FwLibStatus LoadNamedFirmware(FwLibContext* context, const char* hostPath, uint8_t versionNaming) {
  FirmwareFileType type = FirmwareFileType::kFwdat;
  (void)FirmwareTypeFromName(FirmwareTypeSourcePath(), type);  // the driver refused unknown names
  const std::wstring path = WideFromHostPath(hostPath);
  TraceRecord(kTraceLevelInfo, kTag, "named firmware %s", hostPath);
  return type == FirmwareFileType::kFwdat
             ? LoadImageFromContainer(context, path.c_str(), versionNaming)
             : LoadImageFromFile(context, path.c_str());
}

}  // namespace

FwLibStatus FwLibLocateFirmware(FwLibContext* context, uint8_t bootloader) {
  if (context == nullptr) return kFwLibFailure;
  if (context->magic != kFwLibContextMagic) return kFwLibInvalidParameter;
  const uint8_t versionNaming = UsesVersionNaming(AnswerByte(*context, kTlvFirstTypeAt)) ? 1 : 0;
  ForgetLoadedFirmwarePath();
  if (g_runOptions.firmwareFile != nullptr) {
    return LoadNamedFirmware(context, g_runOptions.firmwareFile, versionNaming);
  }

  // A container that is missing or holds nothing for this controller is
  // not an error: the search goes on.
  std::array<wchar_t, kFwPathChars> directory{};
  if (FwLibDriverDirectory(AnswerByte(*context, kLegacyHardwareVariantAt), directory.data()) &&
      FwLibOpenContainerIn(context, directory.data(), versionNaming) == kFwLibSuccess) {
    return kFwLibSuccess;
  }
  if (FwLibOpenContainerIn(context, kOwnFolder, versionNaming) == kFwLibSuccess) {
    return kFwLibSuccess;
  }

  std::array<wchar_t, kFwPathChars> name{};
  std::array<wchar_t, kFwPathChars> path{};
  FwLibStatus status = kFwLibSuccess;
  if (versionNaming != 0) {
    status = FwLibComposeVersionName(context->versionData, bootloader, kOwnImageFolder, name.data(),
                                     path.data());
  } else {
    FwImageKey key{};
    FwLibBuildImageKey(context, &key);
    status = FwLibComposeKeyName(&key, bootloader, kOwnImageFolder, name.data(), path.data());
  }
  if (status != kFwLibSuccess) return status;

  // The fallback is read without an existence test of its own.
  if (FwLibFileExists(path.data()) == 0) {
    const wchar_t* fallback =
        bootloader != 0 ? kFallbackBootloaderImage : kFallbackOperationalImage;
    status = JoinImagePath(kOwnImageFolder, fallback, path.data());
    if (status != kFwLibSuccess) return status;
  }
  TraceRecord(kTraceLevelInfo, kTag, "image file %ls", path.data());
  return LoadImageFromFile(context, path.data());
}

wchar_t FwLibDriveLetterOrDefault() {
  wchar_t drive = kDefaultDrive;
  if (!FwLibSystemDriveLetter(&drive)) drive = kDefaultDrive;
  return drive;
}

}  // namespace qrx
