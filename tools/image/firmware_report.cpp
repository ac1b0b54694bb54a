#include "firmware_report.h"

#include <algorithm>
#include <array>
#include <cinttypes>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "fw_image.h"
#include "fwlib/fragment_iterators.h"
#include "fwlib/fwlib_context.h"
#include "fwlib/image_walk.h"
#include "platform/byte_order.h"
#include "platform/console.h"

namespace qrx::fwtool {

namespace {

using Bytes = std::span<const uint8_t>;

constexpr int kExitOk = 0;
constexpr int kExitMalformed = 1;
constexpr int kExitUsage = 2;

// Modes of the library context: which iterator the loader picks.
constexpr uint8_t kBootloaderMode = 0;   // signed images
constexpr uint8_t kOperationalMode = 1;  // BSEQ images

struct NamedValue {
  uint32_t value;
  const char* name;
};

// The iterators' refusals.
constexpr std::array<NamedValue, 2> kStatusNames = {{
    {kFwLibInvalidParameter, "invalid parameter"},
    {kFwLibInvalidEvent, "malformed image"},
}};

constexpr std::array<NamedValue, 4> kFragmentNames = {{
    {kFragmentHeader, "header"},
    {kFragmentBody, "body"},
    {kFragmentSignature, "signature"},
    {kFragmentPublicKey, "public key"},
}};

// Container entry kinds (low 3 bits of the kind byte).
constexpr uint8_t kEntryKindMask = 0x07;
constexpr uint8_t kEntryKindBseq = 0;
constexpr uint8_t kEntryKindSigned = 1;
constexpr std::array<NamedValue, 3> kEntryKindNames = {{
    {kEntryKindBseq, "BSEQ"},
    {kEntryKindSigned, "signed"},
    {2, "other"},
}};

const char* NameOf(std::span<const NamedValue> table, uint32_t value, const char* otherwise) {
  for (const NamedValue& entry : table) {
    if (entry.value == value) return entry.name;
  }
  return otherwise;
}

double KiB(uint64_t bytes) {
  return static_cast<double>(bytes) / 1024.0;
}

std::string SizeText(uint64_t bytes) {
  std::array<char, 64> text{};
  std::snprintf(text.data(), text.size(), "%" PRIu64 " bytes (%.2f KiB)", bytes, KiB(bytes));
  return text.data();
}

// Consecutive commands of the same shape, shown as one table row.
struct CommandRun {
  uint32_t first = 0;  // 1-based number of the first command
  uint32_t count = 0;
  uint32_t offset = 0;  // image offset of the first command's bytes
  uint32_t key = 0;     // fragment type (signed) or opcode (BSEQ)
  uint32_t dataLength = 0;
  uint32_t commandLength = 0;
};

struct WalkResult {
  std::vector<CommandRun> runs;
  uint32_t commands = 0;
  uint64_t bytes = 0;
  FwLibStatus end = kFwLibSuccess;
  uint32_t stopOffset = 0;
};

// Walks the image with the loader's own dispatcher, so what is shown is what
// a download sends.
WalkResult WalkImage(Bytes image, uint8_t mode, uint8_t isTlvForm, uint8_t scheme) {
  const bool bseq = mode == kOperationalMode;
  WalkResult walk;
  const ImageWalkEnd end = WalkImageCommands(
      image, {bseq, isTlvForm != 0, scheme}, [&walk, bseq](Bytes command, uint32_t offset) {
        const auto length = static_cast<uint32_t>(command.size());
        CommandRun run;
        run.commandLength = length;
        run.dataLength =
            bseq ? command[2] : length - static_cast<uint32_t>(kSecureSendHeaderSize);
        run.key = bseq ? ReadLe16(command, 0) : command[3];
        run.offset = offset - (bseq ? length : run.dataLength);
        ++walk.commands;
        walk.bytes += length;
        if (!walk.runs.empty() && walk.runs.back().key == run.key &&
            walk.runs.back().commandLength == run.commandLength) {
          ++walk.runs.back().count;
          return;
        }
        run.first = walk.commands;
        run.count = 1;
        walk.runs.push_back(run);
      });
  walk.end = end.status;
  walk.stopOffset = end.stopOffset;
  return walk;
}

// BSEQ records, read on their own to count the event records and to say
// where a malformed file breaks.
struct RecordScan {
  uint32_t commands = 0;
  uint32_t events = 0;
  bool clean = true;
  size_t stopOffset = 0;  // where the records break
  std::string problem;
};

RecordScan ScanRecords(Bytes image) {
  // Command record: type, opcode (2), length, parameters. Event record:
  // type, event code, length, parameters.
  constexpr size_t kCommandRecordHeader = 4;
  constexpr size_t kEventRecordHeader = 3;
  RecordScan scan;
  std::array<char, 128> text{};
  size_t at = 0;
  while (at < image.size()) {
    const uint8_t type = image[at];
    const bool command = type == kBseqCommandRecord;
    const size_t header = command ? kCommandRecordHeader : kEventRecordHeader;
    if (!command && type != kBseqEventRecord) {
      std::snprintf(text.data(), text.size(), "unknown record type 0x%02X at offset %zu", type, at);
    } else if (at + header > image.size() || at + header + image[at + header - 1] > image.size()) {
      std::snprintf(text.data(), text.size(), "%s record at offset %zu runs past the end",
                    command ? "command" : "event", at);
    } else {
      ++(command ? scan.commands : scan.events);
      at += header + image[at + header - 1];
      continue;
    }
    scan.clean = false;
    scan.stopOffset = at;
    scan.problem = text.data();
    return scan;
  }
  return scan;
}

// Why a run of body commands starting at `at` cannot make a fragment.
std::string BodyProblem(Bytes image, size_t at) {
  std::array<char, 128> text{};
  size_t total = 0;
  for (;;) {
    if (at + total + kHciCommandHeaderSize > image.size()) {
      std::snprintf(text.data(), text.size(), "command header at offset %zu runs past the end",
                    at + total);
      break;
    }
    const size_t command = at + total;
    total += kHciCommandHeaderSize + image[command + 2];
    if (total > kSecureSendMaxData) {
      std::snprintf(text.data(), text.size(),
                    "commands from offset %zu reach no 4-byte multiple within 252 bytes", at);
      break;
    }
    if (at + total > image.size()) {
      std::snprintf(text.data(), text.size(), "command at offset %zu runs past the end", command);
      break;
    }
    if (total % 4 == 0) break;
  }
  return text.data();
}

void PrintWalk(const char* indent, const char* title, const WalkResult& walk, bool bseq,
               const std::string& problem) {
  StdoutPrintf("%s%s: %u %s, %s\n", indent, title, walk.commands,
               bseq ? "commands" : "Secure Send commands", SizeText(walk.bytes).c_str());
  if (!walk.runs.empty()) {
    StdoutPrintf("%s  %7s  %5s  %8s  %-10s  %6s  %7s\n", indent, "command", "count", "offset",
                 bseq ? "opcode" : "fragment", bseq ? "params" : "data", "length");
  }
  for (const CommandRun& run : walk.runs) {
    std::array<char, 16> key{};
    if (bseq) {
      std::snprintf(key.data(), key.size(), "0x%04X", run.key);
    } else {
      std::snprintf(key.data(), key.size(), "%s", NameOf(kFragmentNames, run.key, "?"));
    }
    StdoutPrintf("%s  %7u  %5u  %8u  %-10s  %6u  %7u\n", indent, run.first, run.count, run.offset,
                 key.data(), run.dataLength, run.commandLength);
  }
  if (walk.end == kFwLibImageExhausted) {
    StdoutPrintf("%s  ok: image exhausted after %u commands\n", indent, walk.commands);
    return;
  }
  StdoutPrintf("%s  MALFORMED: stops at offset %u (0x%X) with status %u (%s) after %u commands\n",
               indent, walk.stopOffset, walk.stopOffset, walk.end,
               NameOf(kStatusNames, walk.end, "?"), walk.commands);
  if (!problem.empty()) StdoutPrintf("%s  %s\n", indent, problem.c_str());
}

// The header fields this project's images carry, checked against the body.
void PrintHeader(const char* indent, const char* label, Bytes image, size_t at, size_t bodyStart) {
  if (image.size() < at + fwimage::kHeaderSize) return;
  const fwimage::HeaderFields fields = fwimage::ReadHeaderFields(image.subspan(at));
  const Bytes body = image.subspan(std::min(bodyStart, image.size()));
  const bool matches =
      fields.bodyLength == body.size() && fields.bodyChecksum == fwimage::BodyChecksum(body);
  StdoutPrintf("%s%-9s kind 0x%02X, patch %u, body length %u, body checksum 0x%08X (%s)\n", indent,
               label, fields.kind, fields.patchNumber, fields.bodyLength, fields.bodyChecksum,
               matches ? "matches the body" : "differs from the body");
}

bool HasSecondBlockMarker(Bytes image) {
  return HasSecondSignatureBlock(image);
}

// Reports where a signed walk failed and why, by layout region.
std::string SignedProblem(Bytes image, const WalkResult& walk, size_t bodyStart) {
  if (walk.end != kFwLibInvalidEvent) return {};
  if (walk.stopOffset >= bodyStart) return BodyProblem(image, walk.stopOffset);
  std::array<char, 128> text{};
  if (walk.stopOffset == kFirstBlockEnd && HasSecondBlockMarker(image)) {
    std::snprintf(text.data(), text.size(),
                  "second block marked at offset %u, but the image ends at %zu (needs %u)",
                  kFirstBlockEnd, image.size(), kSecondBlockEnd);
  } else {
    std::snprintf(text.data(), text.size(), "the image ends at %zu, inside a signature block",
                  image.size());
  }
  return text.data();
}

// How far into the image the signed walks get (the whole image when one
// completes). A file that is neither clean BSEQ nor a clean signed image is
// blamed on the layout that reads further into it.
size_t SignedReach(Bytes image) {
  const bool twoBlocks = HasSecondBlockMarker(image);
  size_t reach = 0;
  for (uint8_t scheme = 0; scheme <= (twoBlocks ? 1 : 0); ++scheme) {
    const WalkResult walk = WalkImage(image, kBootloaderMode, twoBlocks ? 1 : 0, scheme);
    if (walk.end == kFwLibImageExhausted) return image.size();
    reach = std::max<size_t>(reach, walk.stopOffset);
  }
  return reach;
}

// Prints one image's layout and the commands a download sends; true when
// every walk reaches the end of the image.
bool InspectImage(Bytes image, const char* indent, std::optional<uint8_t> entryKind) {
  const RecordScan scan = ScanRecords(image);
  const bool signedKind = entryKind && (*entryKind & kEntryKindMask) == kEntryKindSigned;
  const bool bseqKind = entryKind && (*entryKind & kEntryKindMask) == kEntryKindBseq;
  if (entryKind && !signedKind && !bseqKind) {
    StdoutPrintf("%slayout    none: the loader has no iterator for entry kind %u\n", indent,
                 *entryKind & kEntryKindMask);
    return true;
  }
  if (image.empty()) {
    StdoutPrintf("%slayout    empty: nothing to send\n", indent);
    return false;
  }
  const bool asBseq = bseqKind || (!signedKind && (scan.clean || image.size() < kFirstBlockEnd ||
                                                   SignedReach(image) < scan.stopOffset));
  if (asBseq) {
    StdoutPrintf("%slayout    BSEQ: %u command records, %u event records%s\n", indent,
                 scan.commands, scan.events, scan.clean ? "" : " before the fault");
    const WalkResult walk = WalkImage(image, kOperationalMode, 0, 0);
    PrintWalk(indent, "sent", walk, true, scan.problem);
    return walk.end == kFwLibImageExhausted;
  }

  const bool twoBlocks = HasSecondBlockMarker(image);
  const uint32_t bodyStart = twoBlocks ? kSecondBlockEnd : kFirstBlockEnd;
  const uint64_t bodyBytes = image.size() > bodyStart ? image.size() - bodyStart : 0;
  if (twoBlocks) {
    StdoutPrintf("%slayout    signed, two signature blocks (marker 0x%02X at %u), body at %u, %s\n",
                 indent, kSecondBlockMarker, kFirstBlockEnd, bodyStart,
                 SizeText(bodyBytes).c_str());
  } else {
    StdoutPrintf("%slayout    signed, one signature block (SFI), body at %u, %s\n", indent,
                 bodyStart, SizeText(bodyBytes).c_str());
  }
  PrintHeader(indent, "header", image, 0, bodyStart);
  if (twoBlocks) PrintHeader(indent, "header 2", image, kFirstBlockEnd, bodyStart);

  if (!twoBlocks) {
    const WalkResult walk = WalkImage(image, kBootloaderMode, 0, 0);
    PrintWalk(indent, "sent (SFI, or two-block with scheme 0)", walk, false,
              SignedProblem(image, walk, kFirstBlockEnd));
    return walk.end == kFwLibImageExhausted;
  }
  bool ok = true;
  for (uint8_t scheme : {uint8_t{0}, uint8_t{1}}) {
    const WalkResult walk = WalkImage(image, kBootloaderMode, 1, scheme);
    PrintWalk(indent, scheme == 0 ? "sent with scheme 0" : "sent with scheme 1", walk, false,
              SignedProblem(image, walk, kSecondBlockEnd));
    ok = ok && walk.end == kFwLibImageExhausted;
  }
  return ok;
}

std::string HexBytes(Bytes bytes) {
  std::string text;
  std::array<char, 4> one{};
  for (uint8_t b : bytes) {
    std::snprintf(one.data(), one.size(), "%02X ", b);
    text += one.data();
  }
  if (!text.empty()) text.pop_back();
  return text;
}

bool InspectContainer(Bytes file) {
  const uint8_t formatByte = file[2];
  const uint8_t count = file[3];
  const size_t directoryEnd = fwimage::kFwdatHeaderSize + fwimage::kFwdatEntrySize * count;
  StdoutPrintf("layout    FWDAT container: magic 0x%04X, format byte 0x%02X, %u entries\n",
               ReadLe16(file, 0), formatByte, count);
  bool ok = true;
  if ((formatByte & 0x07) != fwimage::kFwdatFormat) {
    StdoutPrintf("  MALFORMED: directory format %u; the loader reads only format %u\n",
                 formatByte & 0x07, fwimage::kFwdatFormat);
    ok = false;
  }
  if (count == 0) {
    StdoutPrintf("  MALFORMED: no entries\n");
    return false;
  }
  if (directoryEnd > file.size()) {
    StdoutPrintf("  MALFORMED: the directory needs %zu bytes, the file ends at %zu\n", directoryEnd,
                 file.size());
    return false;
  }

  StdoutPrintf("directory at 4..%zu\n", directoryEnd - 1);
  StdoutPrintf("  %5s  %-11s  %8s  %8s  %8s  %8s  %s\n", "entry", "kind", "reserved", "offset",
               "size", "KiB", "match key");
  for (uint8_t i = 0; i < count; ++i) {
    const Bytes entry = file.subspan(fwimage::kFwdatHeaderSize + fwimage::kFwdatEntrySize * i,
                                     fwimage::kFwdatEntrySize);
    const uint32_t size = ReadLe32(entry, 6);
    std::array<char, 24> kind{};
    std::snprintf(kind.data(), kind.size(), "0x%02X %s", entry[0],
                  NameOf(kEntryKindNames, entry[0] & kEntryKindMask, "unknown"));
    StdoutPrintf("  %5u  %-11s  %8s  %8u  %8u  %8.2f  %s\n", i, kind.data(),
                 ("0x" + HexBytes(entry.subspan(1, 1))).c_str(), ReadLe32(entry, 2), size,
                 KiB(size), HexBytes(entry.subspan(10, fwimage::kFwdatMatchKeySize)).c_str());
  }
  for (uint8_t i = 0; i < count; ++i) {
    const Bytes entry = file.subspan(fwimage::kFwdatHeaderSize + fwimage::kFwdatEntrySize * i,
                                     fwimage::kFwdatEntrySize);
    const uint64_t offset = ReadLe32(entry, 2);
    const uint64_t size = ReadLe32(entry, 6);
    StdoutPrintf("entry %u\n", i);
    if (offset + size > file.size()) {
      StdoutPrintf("  MALFORMED: image at %" PRIu64 "..%" PRIu64
                   " runs past the end of the file "
                   "(%zu bytes)\n",
                   offset, offset + size, file.size());
      ok = false;
      continue;
    }
    ok = InspectImage(file.subspan(offset, size), "  ", entry[0]) && ok;
  }
  return ok;
}

// Streams report read errors here without exceptions only through read():
// a directory or unreadable file is simply "cannot read".
std::optional<std::vector<uint8_t>> ReadWholeFile(const char* path) {
  std::error_code error;
  if (!std::filesystem::is_regular_file(path, error)) return std::nullopt;
  std::ifstream in(path, std::ios::binary);
  std::vector<uint8_t> bytes;
  std::array<char, 1 << 16> chunk{};
  while (in) {
    in.read(chunk.data(), chunk.size());
    bytes.insert(bytes.end(), chunk.data(), chunk.data() + in.gcount());
  }
  if (in.bad() || !in.eof()) return std::nullopt;
  return bytes;
}

}  // namespace

int RunInspect(int argc, const char* const* argv) {
  if (argc < 1 || argv[0] == nullptr) {
    ConsolePrintf("usage: qrxfw inspect FILE\n");
    return kExitUsage;
  }
  const std::optional<std::vector<uint8_t>> file = ReadWholeFile(argv[0]);
  if (!file) {
    ConsolePrintf("qrxfw inspect: cannot read %s\n", argv[0]);
    return kExitUsage;
  }
  const Bytes bytes(*file);
  if (bytes.size() > UINT32_MAX) {
    ConsolePrintf("qrxfw inspect: %s is larger than any image the loader can hold\n", argv[0]);
    return kExitMalformed;
  }
  StdoutPrintf("file      %s, %s\n", argv[0], SizeText(bytes.size()).c_str());
  const bool container =
      bytes.size() >= fwimage::kFwdatHeaderSize && ReadLe16(bytes, 0) == fwimage::kFwdatMagic;
  const bool ok = container ? InspectContainer(bytes) : InspectImage(bytes, "", std::nullopt);
  return ok ? kExitOk : kExitMalformed;
}

}  // namespace qrx::fwtool
