#pragma once

namespace qrx {

// Firmware file types, from the name of the file -fw (or --firmware) gives.
enum class FirmwareFileType : int {
  kFwdat = 0,
  kSfi = 1,
  kBseq = 2,
};

// The first of ".dat", ".sfi", ".bseq" found anywhere in the path decides
// (so "fw.dat.sfi" is FWDAT; intended). false when none is there.
bool FirmwareTypeFromName(const char* path, FirmwareFileType& type);

// The name the type goes by in the loader's own lines ("FWDAT", "SFI", "BSEQ").
const char* FirmwareTypeName(FirmwareFileType type);

// The path whose name decides the type: -fw when given, else --firmware; nullptr without either.
const char* FirmwareTypeSourcePath();

}  // namespace qrx
