#pragma once

// Firmware image layouts as this project writes them: the signed layouts
// (one or two signature blocks), BSEQ record files and FWDAT containers.
// The loader reads these; the simulator checks what it receives against the
// same definitions.

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace qrx::fwimage {

// Signed layouts.
constexpr size_t kHeaderSize = 128;
constexpr size_t kFirstKeySize = 256;
constexpr size_t kKeyFieldSize = 4;  // follows the key; never sent
constexpr size_t kFirstSignatureSize = 256;
constexpr size_t kFirstBlockSize =
    kHeaderSize + kFirstKeySize + kKeyFieldSize + kFirstSignatureSize;
constexpr size_t kSecondKeySize = 96;
constexpr size_t kSecondSignatureSize = 96;
constexpr size_t kSecondBlockSize = kHeaderSize + kSecondKeySize + kSecondSignatureSize;
constexpr uint8_t kFirstBlockKind = 0x01;
constexpr uint8_t kSecondBlockMarker = 0x06;
constexpr size_t kMaxFragmentData = 252;

// Header fields of this project's images (both blocks carry the same values).
// Byte 2 is 1 so that the header reads as a 4-byte "first command" and the
// byte after it is the patch number, where the loader's patch-level check
// looks for it.
constexpr size_t kHeaderKindOffset = 0;
constexpr size_t kHeaderFirstLengthOffset = 2;
constexpr size_t kHeaderPatchNumberOffset = 4;
constexpr size_t kHeaderBodyLengthOffset = 8;
constexpr size_t kHeaderBodyChecksumOffset = 12;

// Body commands: a vendor memory write, address then data.
constexpr uint16_t kBodyWriteOpcode = 0xFC8E;

struct SignedImageSpec {
  uint32_t bodyBytes = 4096;  // at least this many body bytes, rounded up to whole groups
  uint32_t seed = 1;          // varies key, signature and data bytes
  uint8_t patchNumber = 0;
};

// A body of whole HCI commands whose greedy groups close on 4-byte
// multiples within 252 bytes (the loader's fragment rule). Group shapes
// vary: single 252-byte commands, 128, 4, and a 28-byte group of four.
std::vector<uint8_t> BuildBody(uint32_t atLeastBytes, uint32_t seed);

std::vector<uint8_t> BuildSfiImage(const SignedImageSpec& recipe);
std::vector<uint8_t> BuildSfiImage(const SignedImageSpec& recipe, std::span<const uint8_t> body);
// withSecondBlock false gives the two-block layout's short form (no 0x06 block).
std::vector<uint8_t> BuildTwoBlockImage(const SignedImageSpec& recipe, bool withSecondBlock);
std::vector<uint8_t> BuildTwoBlockImage(const SignedImageSpec& recipe, bool withSecondBlock,
                                        std::span<const uint8_t> body);

// CRC-32 (IEEE, reflected) of a body, as recorded in the header.
uint32_t BodyChecksum(std::span<const uint8_t> body);

struct HeaderFields {
  uint8_t kind = 0;
  uint8_t patchNumber = 0;
  uint32_t bodyLength = 0;
  uint32_t bodyChecksum = 0;
};
// header must hold at least kHeaderSize bytes.
HeaderFields ReadHeaderFields(std::span<const uint8_t> header);

// BSEQ: command records (0x01) and the event records (0x02) the controller
// answers with.
constexpr uint8_t kBseqCommandRecord = 0x01;
constexpr uint8_t kBseqEventRecord = 0x02;

struct BseqCommand {
  uint16_t opcode = 0;
  std::vector<uint8_t> params;
};
// Each command is followed by its expected event record when withEvents:
// a Command Complete, and for opcodes whose low byte is 0x2F also the vendor
// event 0xFF/0x19.
std::vector<uint8_t> BuildBseqImage(std::span<const BseqCommand> commands, bool withEvents);
// A plausible operational patch: count commands of varied sizes.
std::vector<BseqCommand> SampleBseqCommands(uint32_t count, uint32_t seed);

// FWDAT containers.
constexpr uint16_t kFwdatMagic = 0xFE33;
constexpr uint8_t kFwdatFormat = 1;
constexpr size_t kFwdatHeaderSize = 4;
constexpr size_t kFwdatEntrySize = 23;
constexpr size_t kFwdatMatchKeySize = 13;

struct FwdatEntrySpec {
  uint8_t kindByte = 1;  // low 3 bits: 0 BSEQ, 1 signed, 2 other
  uint8_t reserved = 0;
  std::array<uint8_t, kFwdatMatchKeySize> matchKey{};
  std::vector<uint8_t> image;
  std::optional<uint32_t> offset;  // default: images back to back after the directory
  std::optional<uint32_t> size;    // default: the image's size
};

struct FwdatSpec {
  uint16_t magic = kFwdatMagic;
  uint8_t formatByte = kFwdatFormat;
  std::optional<uint8_t> entryCount;  // default: the number of entries
  uint32_t gapAfterDirectory = 0;     // filler bytes before the first image
};

std::vector<uint8_t> BuildFwdat(std::span<const FwdatEntrySpec> entries,
                                const FwdatSpec& layout = {});

// Match key from leading bytes (the rest zero); at most 13 are used.
std::array<uint8_t, kFwdatMatchKeySize> MatchKey(std::span<const uint8_t> leading);

}  // namespace qrx::fwimage
