#include "fwlib/firmware_locators.h"

#include <array>
#include <cstddef>
#include <cwchar>

#include "fwlib/bounded_format.h"
#include "fwlib/firmware_location.h"
#include "fwlib/image_loaders.h"
#include "platform/system_query.h"

namespace qrx {

namespace {

constexpr const wchar_t* kProgramFolderNative = L"Program Files\\Norix\\Bluetooth";
constexpr const wchar_t* kProgramFolderEmulated = L"Program Files (x86)\\Norix\\Bluetooth";
constexpr const wchar_t* kDriversFolderNative = L"Windows\\system32\\drivers";
constexpr const wchar_t* kDriversFolderEmulated = L"Windows\\sysnative\\drivers";
constexpr const wchar_t* kFirmwareFolder = L"Program Files\\Norix\\Bluetooth\\fw";
constexpr const wchar_t* kSupplementaryImage = L"sup_z0_image.tsfi";

constexpr const wchar_t* kObjectVersionFormat =
    L"\\??\\%lc:\\%ls\\%.2x%.2x%.2x%.2x%.2x%.2x%.2x%.2x00.%ls";
constexpr const wchar_t* kCurrentVersionFormat = L".\\%.2x%.2x%.2x%.2x%.2x%.2x%.2x%.2x00.%ls";

bool RunsUnderEmulation() {
  bool emulated = false;
  return QueryProcessEmulation(&emulated) && emulated;
}

}  // namespace

const wchar_t* FwLibProgramFolder() {
  return RunsUnderEmulation() ? kProgramFolderEmulated : kProgramFolderNative;
}

const wchar_t* FwLibDriversFolder() {
  return RunsUnderEmulation() ? kDriversFolderEmulated : kDriversFolderNative;
}

const wchar_t* FwLibFirmwareFolder() {
  return kFirmwareFolder;
}

FwLibStatus FwLibContainerNameIn(const wchar_t* folder, wchar_t* output) {
  if (folder == nullptr || output == nullptr) return kFwLibInvalidParameter;
  return FwFormatBounded(output, kFwPathChars, kFwJoinFormat, folder, kContainerName) < 0
             ? kFwLibInsufficientBuffer
             : kFwLibSuccess;
}

FwLibStatus FwLibComposeObjectVersionPath(const uint8_t* answer, uint8_t bootloader,
                                          const wchar_t* folder, wchar_t* output) {
  if (answer == nullptr || output == nullptr) return kFwLibInvalidParameter;
  const auto b = [answer](size_t i) { return static_cast<unsigned>(answer[i]); };
  const wchar_t* extension = bootloader != 0 ? kBootloaderExtension : kOperationalExtension;
  int written = 0;
  if (folder != nullptr) {
    const wchar_t drive = FwLibDriveLetterOrDefault();
    written =
        FwFormatBounded(output, kFwPathChars, kObjectVersionFormat, static_cast<wint_t>(drive),
                        folder, b(0), b(1), b(2), b(3), b(4), b(5), b(6), b(7), extension);
  } else {
    written = FwFormatBounded(output, kFwPathChars, kCurrentVersionFormat, b(0), b(1), b(2), b(3),
                              b(4), b(5), b(6), b(7), extension);
  }
  if (written < 0) return kFwLibInsufficientBuffer;
  return FwLibFileExists(output) == 1 ? kFwLibSuccess : kFwLibNoViableFirmware;
}

FwLibStatus FwLibLoadSupplementaryImage(FwLibContext* context) {
  std::array<wchar_t, kFwPathChars> path{};
  size_t capacity = path.size();
  const FwLibStatus status =
      FwLibComposePath(path.data(), &capacity, FwLibDriversFolder(), kSupplementaryImage);
  if (status != kFwLibSuccess) return status;
  return LoadImageFromFile(context, path.data());
}

}  // namespace qrx
