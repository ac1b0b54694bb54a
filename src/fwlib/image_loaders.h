#pragma once

#include <cstdint>
#include <string>

#include "fwlib/fwlib_context.h"

namespace qrx {

// Both loaders place one image in the context (imageData = imageBuffer, a
// new[] block of exactly imageSize bytes owned by the context, imageOffset 0,
// imageBorrowed 0) and answer library statuses: 2 bad argument, 11 file
// missing, 13 no memory, 14 any lookup or read failure.

// Takes the controller's image out of a container. With useContextKey the
// answer copy is the match key, else the 12-byte image key.
FwLibStatus LoadImageFromContainer(FwLibContext* context, const wchar_t* containerPath,
                                   uint8_t useContextKey);

// Reads a whole SFI or BSEQ file.
FwLibStatus LoadImageFromFile(FwLibContext* context, const wchar_t* path);

// The host path of the file the last successful load read from; empty when
// none succeeded since ForgetLoadedFirmwarePath.
const std::string& LoadedFirmwarePath();
void ForgetLoadedFirmwarePath();

}  // namespace qrx
