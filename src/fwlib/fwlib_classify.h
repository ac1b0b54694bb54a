#pragma once

#include <cstdint>

#include "fwlib/fwlib_context.h"

namespace qrx {

// Creates a context for the answer and classifies the controller: a 90-byte
// answer must come from a bootloader, an 80-byte one from operational
// firmware, a 9-byte one may be either. 2 for a null argument or length 0,
// 13 without memory, 12 for a long answer in the wrong mode (the result is
// then null). Any other length answers 0 and leaves *result as it was.
FwLibStatus FwLibClassify(const uint8_t* answer, uint8_t answerLength, FwLibContext** result);

// Stand-alone verdicts on a raw answer, which must be long enough for the
// position read. 2 for a null pointer, else 0 with *flag set to 0 or 1.
FwLibStatus FwLibIsBootloaderLegacy(const uint8_t* answer, uint8_t* flag);   // 9-byte form
FwLibStatus FwLibIsBootloaderTlvBoot(const uint8_t* answer, uint8_t* flag);  // 90-byte form
FwLibStatus FwLibIsBootloaderTlvOp(const uint8_t* answer, uint8_t* flag);    // 80-byte form
FwLibStatus FwLibIsLegacyRom(const uint8_t* answer, uint8_t* flag);          // 9-byte form

// Compares the patch number that follows the loaded image's first command
// with the legacy controller's (answer byte 8): *current is 1 unless the
// image's is greater; *otherLoaded is 1 when it is greater and the
// controller carries a non-zero patch. 12 when the image is too short or
// absent.
FwLibStatus FwLibCheckPatchLevel(const FwLibContext* context, uint8_t* current,
                                 uint8_t* otherLoaded);

// Takes the image from an already loaded container instead of searching
// the disk. No container query is supported, so this ends in 14.
FwLibStatus FwLibLookupImage(FwLibContext* context);

}  // namespace qrx
