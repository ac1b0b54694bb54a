#pragma once

#include <cstdint>

#include "fwlib/fwlib_context.h"

namespace qrx {

// Further places the library can name. The run's own search does not use
// them.

// "Program Files (x86)\Norix\Bluetooth" for a 32-bit process under emulation
// on a 64-bit system, else (and when the question fails)
// "Program Files\Norix\Bluetooth".
const wchar_t* FwLibProgramFolder();
// "Windows\sysnative\drivers" under emulation, else "Windows\system32\drivers".
const wchar_t* FwLibDriversFolder();
// "Program Files\Norix\Bluetooth\fw".
const wchar_t* FwLibFirmwareFolder();

// folder + "qrxfw.dat" into output (kFwPathChars); 1 when it does not fit.
FwLibStatus FwLibContainerNameIn(const wchar_t* folder, wchar_t* output);

// "\??\<drive>:\<folder>\<version name>" with a folder, ".\<version name>"
// without, the name made of answer bytes 0-7 and the mode's extension.
// 1 when it does not fit, 11 when the file does not exist.
FwLibStatus FwLibComposeObjectVersionPath(const uint8_t* answer, uint8_t bootloader,
                                          const wchar_t* folder, wchar_t* output);

// Reads "sup_z0_image.tsfi" from the drivers folder into the context.
FwLibStatus FwLibLoadSupplementaryImage(FwLibContext* context);

}  // namespace qrx
