#include "run/firmware_type.h"

#include <array>
#include <cstring>

#include "run/run_options.h"

namespace qrx {

namespace {

struct Extension {
  const char* text;
  FirmwareFileType type;
  const char* name;
};
// Searched anywhere in the path and in this order; intended.
constexpr std::array<Extension, 3> kExtensions = {{
    {".dat", FirmwareFileType::kFwdat, "FWDAT"},
    {".sfi", FirmwareFileType::kSfi, "SFI"},
    {".bseq", FirmwareFileType::kBseq, "BSEQ"},
}};

}  // namespace

bool FirmwareTypeFromName(const char* path, FirmwareFileType& type) {
  for (const Extension& extension : kExtensions) {
    if (std::strstr(path, extension.text) != nullptr) {
      type = extension.type;
      return true;
    }
  }
  return false;
}

const char* FirmwareTypeName(FirmwareFileType type) {
  for (const Extension& extension : kExtensions) {
    if (extension.type == type) return extension.name;
  }
  return "?";
}

const char* FirmwareTypeSourcePath() {
  return g_runOptions.firmwarePath != nullptr ? g_runOptions.firmwarePath
                                              : g_runOptions.firmwareFile;
}

}  // namespace qrx
