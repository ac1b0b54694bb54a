#pragma once

#include <cstddef>
#include <cstdint>

#include "fwlib/fwlib_context.h"
#include "fwlib/image_key.h"

namespace qrx {

// Where the firmware is looked for. Paths are Windows-form wide strings in
// buffers of kFwPathChars (bounded_format.h); they reach the host only where
// a file is opened (platform/host_path.h).
constexpr const wchar_t* kOwnFolder = L"\\Program Files\\Norix\\Bluetooth";
constexpr const wchar_t* kOwnImageFolder = L"\\??\\C:\\Program Files\\Norix\\Bluetooth\\";
constexpr const wchar_t* kDriverRoot =
    L"\\Program Files (x86)\\Norix\\Bluetooth\\drivers\\qrxuart\\";
constexpr const wchar_t* kContainerName = L"qrxfw.dat";
constexpr const wchar_t* kFallbackBootloaderImage = L"Fw.sfi";
constexpr const wchar_t* kFallbackOperationalImage = L"Fw.bseq";
constexpr const wchar_t* kBootloaderExtension = L"sfi";
constexpr const wchar_t* kOperationalExtension = L"bseq";

// Finds the controller's firmware and reads it into the context: a
// container in the product-family directory, a container in the own folder,
// the image named after the answer or image key, then "Fw.sfi"/"Fw.bseq".
// bootloader is 1 unless the controller is operational. 3 without a
// context; otherwise the status of the last step tried.
FwLibStatus FwLibLocateFirmware(FwLibContext* context, uint8_t bootloader);

// The product-family directory for a hardware variant; true only when it
// passes FwLibFileExists, which a directory never does.
bool FwLibDriverDirectory(uint8_t hardwareVariant, wchar_t* output);

// Loads the image from "qrxfw.dat" in folder; versionNaming makes the answer
// copy the match key instead of the image key.
FwLibStatus FwLibOpenContainerIn(FwLibContext* context, const wchar_t* folder,
                                 uint8_t versionNaming);

// "<drive>:\<folder>\<name>" (or ".\<name>" without a folder) into output.
// On success *capacity becomes the length written. 2 for a null argument or
// a path that does not fit, 11 when the file does not exist; both clear
// *capacity.
FwLibStatus FwLibComposePath(wchar_t* output, size_t* capacity, const wchar_t* folder,
                             const wchar_t* fileName);

// Image file names from answer bytes 0-7 or from the image key, with the
// extension of the mode, and folder + name. 0, or 1 when either does not fit.
FwLibStatus FwLibComposeVersionName(const uint8_t* answer, uint8_t bootloader,
                                    const wchar_t* folder, wchar_t* name, wchar_t* path);
FwLibStatus FwLibComposeKeyName(const FwImageKey* key, uint8_t bootloader, const wchar_t* folder,
                                wchar_t* name, wchar_t* path);

// 1 when the path opens as an existing regular file for reading, else 0.
int FwLibFileExists(const wchar_t* path);

// The system drive from the machine's settings; false when it cannot be
// read (always here), and callers then use C.
bool FwLibSystemDriveLetter(wchar_t* letter);

// The system drive, or C when it cannot be read.
wchar_t FwLibDriveLetterOrDefault();

// Folder followed by file name.
constexpr const wchar_t* kFwJoinFormat = L"%ls%ls";

}  // namespace qrx
