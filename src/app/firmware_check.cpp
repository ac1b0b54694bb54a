#include "app/firmware_check.h"

#include <algorithm>
#include <array>
#include <cinttypes>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "fwlib/fragment_iterators.h"
#include "fwlib/fwdat.h"
#include "fwlib/image_walk.h"
#include "platform/byte_order.h"
#include "platform/console.h"
#include "platform/error_text.h"
#include "platform/file_io.h"
#include "run/firmware_type.h"
#include "run/run_options.h"

namespace qrx {
namespace {

using Bytes = std::span<const uint8_t>;

// Container entry kinds (kind byte, low bits) whose images the loader walks.
constexpr uint8_t kEntryKindBseq = 0;
constexpr uint8_t kEntryKindSigned = 1;

// The smallest whole image of each type: a container with one directory
// entry, a signed image's first signature block, one BSEQ command record
// (type, opcode, parameter length).
constexpr size_t kBseqCommandRecordHeader = 4;
struct SmallestImage {
  FirmwareFileType type;
  uint64_t bytes;
};
constexpr std::array<SmallestImage, 3> kSmallestImages = {{
    {FirmwareFileType::kFwdat, kFwdatHeaderSize + kFwdatEntrySize},
    {FirmwareFileType::kSfi, kFirstBlockEnd},
    {FirmwareFileType::kBseq, kBseqCommandRecordHeader},
}};

constexpr uint32_t kReadChunk = 1 << 16;

// The whole file, or the system's error number.
int ReadWholeFile(const char* path, std::vector<uint8_t>& bytes) {
  FileHandle handle = kNoFileHandle;
  int error = FileOpenForReading(path, &handle);
  if (error != 0) return error;
  uint64_t size = 0;
  error = FileGetSize(handle, &size);
  while (error == 0 && bytes.size() < size) {
    const uint64_t at = bytes.size();
    const auto want = static_cast<uint32_t>(std::min<uint64_t>(kReadChunk, size - at));
    bytes.resize(at + want);
    uint32_t got = 0;
    error = FileReadAt(handle, at, bytes.data() + at, want, &got);
    bytes.resize(at + got);
    if (got == 0) break;
  }
  FileClose(handle);
  return error;
}

std::string WalkProblem(Bytes image, bool operational) {
  if (ImageWalksClean(image, operational)) return "";
  const bool twoBlocks = !operational && HasSecondSignatureBlock(image);
  uint32_t stop = 0;
  for (uint8_t scheme = 0; scheme <= (twoBlocks ? 1 : 0); ++scheme) {
    const ImageWalkEnd end = WalkImageCommands(image, {operational, twoBlocks, scheme});
    if (end.status != kFwLibImageExhausted) stop = end.stopOffset;
  }
  return "its " + std::string(operational ? "BSEQ commands" : "signed image") +
         " cannot be cut into commands from offset " + std::to_string(stop);
}

std::string ContainerProblem(Bytes file) {
  if (ReadLe16(file, kFwdatMagicOffset) != kFwdatMagic) return "it has no FWDAT container header";
  const uint8_t format = file[kFwdatFormatOffset] & kFwdatFormatMask;
  if (format != kFwdatDirectoryFormat) {
    return "its directory format " + std::to_string(format) + " is not one the loader reads";
  }
  const uint8_t count = file[kFwdatCountOffset];
  if (count == 0) return "its directory lists no image";
  if (kFwdatHeaderSize + size_t{count} * kFwdatEntrySize > file.size()) {
    return "its directory runs past the end of the file";
  }
  for (uint8_t index = 0; index < count; ++index) {
    FwdatEntry entry{};
    std::copy_n(file.begin() + kFwdatHeaderSize + size_t{index} * kFwdatEntrySize, entry.size(),
                entry.begin());
    const uint64_t offset = FwdatEntryImageOffset(entry);
    const uint64_t size = FwdatEntryImageSize(entry);
    const std::string name = "entry " + std::to_string(index);
    if (offset + size > file.size()) return name + " runs past the end of the file";
    const uint8_t kind = FwdatEntryKind(entry) & kFwdatKindMask;
    if (kind != kEntryKindSigned && kind != kEntryKindBseq) continue;
    const std::string problem = WalkProblem(file.subspan(offset, size), kind == kEntryKindBseq);
    if (!problem.empty()) return name + ": " + problem;
  }
  return "";
}

// What is wrong with a file of this type; empty when nothing is.
std::string LayoutProblem(Bytes file, FirmwareFileType type) {
  for (const SmallestImage& smallest : kSmallestImages) {
    if (smallest.type != type || file.size() >= smallest.bytes) continue;
    return "it is " + std::to_string(file.size()) + " bytes, shorter than the smallest " +
           FirmwareTypeName(type) + " image (" + std::to_string(smallest.bytes) + " bytes)";
  }
  switch (type) {
    case FirmwareFileType::kFwdat:
      return ContainerProblem(file);
    case FirmwareFileType::kSfi:
      return WalkProblem(file, false);
    case FirmwareFileType::kBseq:
      return WalkProblem(file, true);
  }
  return "";
}

std::string Problem(const char* path) {
  std::vector<uint8_t> bytes;
  if (const int error = ReadWholeFile(path, bytes); error != 0) {
    return std::string("cannot be read: ") + SystemErrorText(error);
  }
  if (bytes.empty()) return "is empty";
  if (std::all_of(bytes.begin(), bytes.end(), [](uint8_t b) { return b == 0; })) {
    return "holds nothing but zero bytes";
  }
  FirmwareFileType type = FirmwareFileType::kFwdat;
  if (!FirmwareTypeFromName(FirmwareTypeSourcePath(), type)) {
    return "has no known type: its name (or -fw) holds none of .dat, .sfi, .bseq";
  }
  // Under -bd the designed path decides what becomes of the file.
  if (g_runOptions.downloadBdData) return "";
  const std::string layout = LayoutProblem(bytes, type);
  return layout.empty() ? "" : std::string("is not a whole ") + FirmwareTypeName(type) +
                                   " file: " + layout;
}

}  // namespace

bool CheckNamedFirmwareFile() {
  const char* path = g_runOptions.firmwareFile;
  if (path == nullptr) return true;
  const std::string problem = Problem(path);
  if (problem.empty()) return true;
  ConsolePrintf("qrxbpl: the firmware file %s %s\n", path, problem.c_str());
  return false;
}

}  // namespace qrx
