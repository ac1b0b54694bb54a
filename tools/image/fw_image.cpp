#include "fw_image.h"

#include <algorithm>

#include "platform/byte_order.h"

namespace qrx::fwimage {

namespace {

// Deterministic filler so images are reproducible from their seed.
class Filler {
 public:
  explicit Filler(uint32_t seed) : state_(seed == 0 ? 0x9E3779B9u : seed) {}
  uint8_t Next() {
    state_ ^= state_ << 13;
    state_ ^= state_ >> 17;
    state_ ^= state_ << 5;
    return static_cast<uint8_t>(state_ >> 24);
  }
  void Append(std::vector<uint8_t>& out, size_t count) {
    for (size_t i = 0; i < count; ++i) out.push_back(Next());
  }

 private:
  uint32_t state_;
};

// Parameter lengths of the commands of one fragment group. Each group's
// commands (3 header bytes + parameters) add up to a multiple of 4 only at
// the group's last command, so the loader's greedy grouping closes exactly
// there.
struct GroupShape {
  std::array<uint8_t, 4> paramLengths;
  uint8_t commands;
};
constexpr std::array<GroupShape, 10> kGroupCycle = {{
    {{249}, 1},
    {{249}, 1},
    {{4, 4, 8, 0}, 4},  // 7 + 7 + 11 + 3 = 28
    {{249}, 1},
    {{125}, 1},
    {{249}, 1},
    {{1}, 1},
    {{249}, 1},
    {{0, 0, 0, 0}, 4},  // 3 + 3 + 3 + 3 = 12
    {{249}, 1},
}};

constexpr size_t kCommandHeaderSize = 3;

constexpr std::array<uint32_t, 256> MakeCrcTable() {
  std::array<uint32_t, 256> table{};
  for (uint32_t i = 0; i < 256; ++i) {
    uint32_t c = i;
    for (int k = 0; k < 8; ++k) c = (c & 1u) ? 0xEDB88320u ^ (c >> 1) : c >> 1;
    table[i] = c;
  }
  return table;
}
constexpr std::array<uint32_t, 256> kCrcTable = MakeCrcTable();

void AppendHeader(std::vector<uint8_t>& out, uint8_t kind, const SignedImageSpec& recipe,
                  std::span<const uint8_t> body, Filler& filler) {
  const size_t start = out.size();
  filler.Append(out, kHeaderSize);
  std::span<uint8_t> header(out.data() + start, kHeaderSize);
  header[kHeaderKindOffset] = kind;
  header[1] = 0;
  header[kHeaderFirstLengthOffset] = 1;
  header[3] = 0;
  header[kHeaderPatchNumberOffset] = recipe.patchNumber;
  WriteLe32(header, kHeaderBodyLengthOffset, static_cast<uint32_t>(body.size()));
  WriteLe32(header, kHeaderBodyChecksumOffset, BodyChecksum(body));
}

std::vector<uint8_t> FirstBlock(const SignedImageSpec& recipe, std::span<const uint8_t> body,
                                Filler& filler) {
  std::vector<uint8_t> out;
  out.reserve(kFirstBlockSize + kSecondBlockSize + body.size());
  AppendHeader(out, kFirstBlockKind, recipe, body, filler);
  filler.Append(out, kFirstKeySize + kKeyFieldSize + kFirstSignatureSize);
  return out;
}

}  // namespace

uint32_t BodyChecksum(std::span<const uint8_t> body) {
  uint32_t crc = 0xFFFFFFFFu;
  for (uint8_t b : body) crc = kCrcTable[(crc ^ b) & 0xFFu] ^ (crc >> 8);
  return crc ^ 0xFFFFFFFFu;
}

std::vector<uint8_t> BuildBody(uint32_t atLeastBytes, uint32_t seed) {
  Filler filler(seed ^ 0x5A5A5A5Au);
  std::vector<uint8_t> body;
  for (size_t g = 0; body.size() < atLeastBytes; ++g) {
    const GroupShape& shape = kGroupCycle[g % kGroupCycle.size()];
    for (uint8_t c = 0; c < shape.commands; ++c) {
      const size_t at = body.size();
      body.resize(at + kCommandHeaderSize);
      WriteLe16(body, at, kBodyWriteOpcode);
      body[at + 2] = shape.paramLengths[c];
      filler.Append(body, shape.paramLengths[c]);
    }
  }
  return body;
}

std::vector<uint8_t> BuildSfiImage(const SignedImageSpec& recipe) {
  return BuildSfiImage(recipe, BuildBody(recipe.bodyBytes, recipe.seed));
}

std::vector<uint8_t> BuildSfiImage(const SignedImageSpec& recipe, std::span<const uint8_t> body) {
  Filler filler(recipe.seed);
  std::vector<uint8_t> out = FirstBlock(recipe, body, filler);
  out.insert(out.end(), body.begin(), body.end());
  return out;
}

std::vector<uint8_t> BuildTwoBlockImage(const SignedImageSpec& recipe, bool withSecondBlock) {
  return BuildTwoBlockImage(recipe, withSecondBlock, BuildBody(recipe.bodyBytes, recipe.seed));
}

std::vector<uint8_t> BuildTwoBlockImage(const SignedImageSpec& recipe, bool withSecondBlock,
                                        std::span<const uint8_t> body) {
  Filler filler(recipe.seed);
  std::vector<uint8_t> out = FirstBlock(recipe, body, filler);
  if (withSecondBlock) {
    AppendHeader(out, kSecondBlockMarker, recipe, body, filler);
    filler.Append(out, kSecondKeySize + kSecondSignatureSize);
  }
  out.insert(out.end(), body.begin(), body.end());
  return out;
}

HeaderFields ReadHeaderFields(std::span<const uint8_t> header) {
  HeaderFields fields;
  if (header.size() < kHeaderSize) return fields;
  fields.kind = header[kHeaderKindOffset];
  fields.patchNumber = header[kHeaderPatchNumberOffset];
  fields.bodyLength = ReadLe32(header, kHeaderBodyLengthOffset);
  fields.bodyChecksum = ReadLe32(header, kHeaderBodyChecksumOffset);
  return fields;
}

namespace {
constexpr uint8_t kCommandCompleteCode = 0x0E;
constexpr uint8_t kVendorEventCode = 0xFF;
constexpr uint8_t kVendorEventReplayDone = 0x19;
constexpr uint8_t kVendorAnsweredOpcodeLow = 0x2F;

void AppendRecord(std::vector<uint8_t>& out, std::initializer_list<uint8_t> bytes) {
  out.insert(out.end(), bytes.begin(), bytes.end());
}
}  // namespace

std::vector<uint8_t> BuildBseqImage(std::span<const BseqCommand> commands, bool withEvents) {
  std::vector<uint8_t> out;
  for (const BseqCommand& command : commands) {
    const uint8_t low = static_cast<uint8_t>(command.opcode);
    const uint8_t high = static_cast<uint8_t>(command.opcode >> 8);
    AppendRecord(out, {kBseqCommandRecord, low, high, static_cast<uint8_t>(command.params.size())});
    out.insert(out.end(), command.params.begin(), command.params.end());
    if (!withEvents) continue;
    AppendRecord(out, {kBseqEventRecord, kCommandCompleteCode, 4, 1, low, high, 0});
    if (low == kVendorAnsweredOpcodeLow) {
      AppendRecord(out, {kBseqEventRecord, kVendorEventCode, 2, kVendorEventReplayDone, 0});
    }
  }
  return out;
}

std::vector<BseqCommand> SampleBseqCommands(uint32_t count, uint32_t seed) {
  // Mostly memory writes of varied length, now and then a command that the
  // controller confirms with a vendor event as well, and one of the longest
  // possible length.
  constexpr std::array<uint16_t, 4> kOpcodes = {kBodyWriteOpcode, kBodyWriteOpcode, 0xFC2F, 0xFC8B};
  Filler filler(seed);
  std::vector<BseqCommand> commands(count);
  for (uint32_t i = 0; i < count; ++i) {
    commands[i].opcode = kOpcodes[i % kOpcodes.size()];
    const size_t length = (i == 1) ? 255 : filler.Next();
    filler.Append(commands[i].params, length);
  }
  return commands;
}

std::array<uint8_t, kFwdatMatchKeySize> MatchKey(std::span<const uint8_t> leading) {
  std::array<uint8_t, kFwdatMatchKeySize> key{};
  std::copy_n(leading.begin(), std::min(leading.size(), key.size()), key.begin());
  return key;
}

std::vector<uint8_t> BuildFwdat(std::span<const FwdatEntrySpec> entries, const FwdatSpec& layout) {
  constexpr uint8_t kGapFiller = 0xA5;
  const size_t directoryEnd = kFwdatHeaderSize + kFwdatEntrySize * entries.size();
  std::vector<uint8_t> out(directoryEnd + layout.gapAfterDirectory, kGapFiller);
  WriteLe16(out, 0, layout.magic);
  out[2] = layout.formatByte;
  out[3] = layout.entryCount.value_or(static_cast<uint8_t>(entries.size()));

  uint32_t cursor = static_cast<uint32_t>(out.size());
  for (size_t i = 0; i < entries.size(); ++i) {
    const FwdatEntrySpec& entry = entries[i];
    const uint32_t offset = entry.offset.value_or(cursor);
    if (!entry.offset) cursor += static_cast<uint32_t>(entry.image.size());
    if (out.size() < offset + entry.image.size()) out.resize(offset + entry.image.size(), 0);
    std::copy(entry.image.begin(), entry.image.end(), out.begin() + offset);

    const size_t at = kFwdatHeaderSize + kFwdatEntrySize * i;
    out[at] = entry.kindByte;
    out[at + 1] = entry.reserved;
    WriteLe32(out, at + 2, offset);
    WriteLe32(out, at + 6, entry.size.value_or(static_cast<uint32_t>(entry.image.size())));
    std::copy(entry.matchKey.begin(), entry.matchKey.end(), out.begin() + at + 10);
  }
  return out;
}

}  // namespace qrx::fwimage
