// qrxfw: builds the firmware layouts the loader reads (signed images with one
// or two signature blocks, BSEQ record files, FWDAT containers) and inspects
// them.

#include <charconv>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "image/firmware_report.h"
#include "image/fw_image.h"
#include "platform/console.h"

namespace {

using namespace qrx::fwimage;

constexpr int kExitOk = 0;
constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;

constexpr std::string_view kHelp =
    "Usage: qrxfw COMMAND ...\n"
    "\n"
    "  qrxfw sfi OUT [--body-bytes N] [--seed N] [--patch N] [--corrupt-body]\n"
    "      signed image with one signature block: header, key, key field, signature, body\n"
    "  qrxfw two-block OUT [--no-second-block] [--body-bytes N] [--seed N] [--patch N]\n"
    "                      [--corrupt-body]\n"
    "      the same first block, then the second block (header marker 0x06, 96-byte key\n"
    "      and signature) unless --no-second-block, then the body\n"
    "  qrxfw bseq OUT [--commands N] [--seed N] [--no-events]\n"
    "      recorded command sequence; each command followed by its expected events\n"
    "      unless --no-events\n"
    "  qrxfw fwdat OUT [--format-byte N] [--gap N] ENTRY...\n"
    "      container with one directory entry per ENTRY, images in the order given.\n"
    "      ENTRY is KIND:KEY:FILE, KIND bseq (0), signed (1), other (2) or a kind byte,\n"
    "      KEY the match key in hex (up to 13 bytes, the rest zero; '-' for none),\n"
    "      FILE the image to store, e.g. signed:0251113701341256f0debc9a:fw.sfi\n"
    "  qrxfw inspect FILE\n"
    "      what the loader would see in a container or an image\n"
    "  qrxfw --version\n"
    "      the program's name and version\n"
    "\n"
    "Defaults: --body-bytes 4096 (rounded up to whole fragment groups), --seed 1,\n"
    "--patch 0, --commands 16, --format-byte 1, --gap 0. Numbers are decimal or 0x hex.\n"
    "--corrupt-body flips one body parameter byte after the header's CRC-32 is written,\n"
    "so the image still cuts into fragments but fails the controller's body check.\n"
    "The header (both blocks) records: kind at 0, patch number at 4, body length at 8,\n"
    "body CRC-32 at 12.\n";

std::optional<uint64_t> Number(std::string_view text) {
  int base = 10;
  if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
    text.remove_prefix(2);
    base = 16;
  }
  uint64_t value = 0;
  const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value, base);
  if (text.empty() || ec != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

std::optional<std::vector<uint8_t>> HexBytes(std::string_view text) {
  std::vector<uint8_t> bytes;
  if (text == "-") return bytes;
  if (text.size() % 2 != 0) return std::nullopt;
  for (size_t i = 0; i < text.size(); i += 2) {
    uint8_t byte = 0;
    const auto [end, ec] = std::from_chars(text.data() + i, text.data() + i + 2, byte, 16);
    if (ec != std::errc() || end != text.data() + i + 2) return std::nullopt;
    bytes.push_back(byte);
  }
  return bytes;
}

int Usage(const std::string& why) {
  qrx::ConsolePrintf("qrxfw: %s\nTry 'qrxfw --help'.\n", why.c_str());
  return kExitUsage;
}

bool WriteFile(const std::string& path, const std::vector<uint8_t>& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(bytes.data()),
            static_cast<std::streamsize>(bytes.size()));
  return static_cast<bool>(out);
}

std::optional<std::vector<uint8_t>> ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return std::nullopt;
  return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), {});
}

int Written(const std::string& path, const std::vector<uint8_t>& bytes) {
  if (!WriteFile(path, bytes)) {
    qrx::ConsolePrintf("qrxfw: cannot write %s\n", path.c_str());
    return kExitFailure;
  }
  qrx::StdoutPrintf("qrxfw: wrote %s (%zu bytes)\n", path.c_str(), bytes.size());
  return kExitOk;
}

// Options shared by the builders; each builder says which it takes.
struct BuildOptions {
  SignedImageSpec signedSpec;
  uint32_t commands = 16;
  bool secondBlock = true;
  bool events = true;
  bool corruptBody = false;
  uint8_t formatByte = kFwdatFormat;
  uint32_t gap = 0;
  std::vector<std::string> positional;
};

bool ParseBuildOptions(int argc, const char* const* argv, BuildOptions* o, std::string* error) {
  for (int i = 0; i < argc; ++i) {
    const std::string_view arg = argv[i];
    if (arg == "--no-second-block") {
      o->secondBlock = false;
    } else if (arg == "--no-events") {
      o->events = false;
    } else if (arg == "--corrupt-body") {
      o->corruptBody = true;
    } else if (arg.starts_with("--")) {
      if (i + 1 >= argc) {
        *error = std::string(arg) + " needs a value";
        return false;
      }
      const std::optional<uint64_t> value = Number(argv[++i]);
      const auto fits = [&](uint64_t max) { return value && *value <= max; };
      if (arg == "--body-bytes" && fits(1u << 24)) {
        o->signedSpec.bodyBytes = static_cast<uint32_t>(*value);
      } else if (arg == "--seed" && fits(0xFFFFFFFF)) {
        o->signedSpec.seed = static_cast<uint32_t>(*value);
      } else if (arg == "--patch" && fits(0xFF)) {
        o->signedSpec.patchNumber = static_cast<uint8_t>(*value);
      } else if (arg == "--commands" && fits(1u << 16)) {
        o->commands = static_cast<uint32_t>(*value);
      } else if (arg == "--format-byte" && fits(0xFF)) {
        o->formatByte = static_cast<uint8_t>(*value);
      } else if (arg == "--gap" && fits(1u << 24)) {
        o->gap = static_cast<uint32_t>(*value);
      } else {
        *error = "bad option or value: " + std::string(arg) + " " + argv[i];
        return false;
      }
    } else {
      o->positional.emplace_back(arg);
    }
  }
  return true;
}

// Flips the last parameter byte of the first body command that has one, so
// the grouping stays intact and only the checksum tells.
void CorruptBody(std::vector<uint8_t>& image, size_t bodyAt) {
  for (size_t at = bodyAt; at + 3 <= image.size(); at += 3 + image[at + 2]) {
    const uint8_t length = image[at + 2];
    if (length > 0 && at + 3 + length <= image.size()) {
      image[at + 2 + length] ^= 0xFF;
      return;
    }
  }
}

int BuildSigned(const BuildOptions& o, bool twoBlock) {
  std::vector<uint8_t> image =
      twoBlock ? BuildTwoBlockImage(o.signedSpec, o.secondBlock) : BuildSfiImage(o.signedSpec);
  if (o.corruptBody) {
    CorruptBody(image, kFirstBlockSize + (twoBlock && o.secondBlock ? kSecondBlockSize : 0));
  }
  return Written(o.positional[0], image);
}

int BuildBseq(const BuildOptions& o) {
  const std::vector<BseqCommand> commands = SampleBseqCommands(o.commands, o.signedSpec.seed);
  return Written(o.positional[0], BuildBseqImage(commands, o.events));
}

struct KindName {
  std::string_view name;
  uint8_t kind;
};
constexpr KindName kKindNames[] = {{"bseq", 0}, {"signed", 1}, {"other", 2}};

std::optional<uint8_t> KindByte(std::string_view text) {
  for (const KindName& entry : kKindNames) {
    if (entry.name == text) return entry.kind;
  }
  const std::optional<uint64_t> value = Number(text);
  if (value && *value <= 0xFF) return static_cast<uint8_t>(*value);
  return std::nullopt;
}

int BuildContainer(const BuildOptions& o) {
  std::vector<FwdatEntrySpec> entries;
  for (size_t i = 1; i < o.positional.size(); ++i) {
    const std::string& text = o.positional[i];
    const size_t first = text.find(':');
    const size_t second = first == std::string::npos ? first : text.find(':', first + 1);
    if (second == std::string::npos) return Usage("entry is not KIND:KEY:FILE: " + text);
    const std::optional<uint8_t> kind = KindByte(text.substr(0, first));
    const auto key = HexBytes(std::string_view(text).substr(first + 1, second - first - 1));
    if (!kind) return Usage("bad kind in entry: " + text);
    if (!key || key->size() > kFwdatMatchKeySize) return Usage("bad key in entry: " + text);
    const std::string path = text.substr(second + 1);
    std::optional<std::vector<uint8_t>> image = ReadFile(path);
    if (!image) {
      qrx::ConsolePrintf("qrxfw: cannot read %s\n", path.c_str());
      return kExitFailure;
    }
    FwdatEntrySpec entry;
    entry.kindByte = *kind;
    entry.matchKey = MatchKey(*key);
    entry.image = std::move(*image);
    entries.push_back(std::move(entry));
  }
  if (entries.empty()) return Usage("fwdat needs at least one ENTRY");
  if (entries.size() > 255) return Usage("fwdat holds at most 255 entries");
  FwdatSpec layout;
  layout.formatByte = o.formatByte;
  layout.gapAfterDirectory = o.gap;
  return Written(o.positional[0], BuildFwdat(entries, layout));
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) return Usage("no command");
  const std::string_view command = argv[1];
  if (command == "--help" || command == "-h" || command == "help") {
    qrx::StdoutPrintf("%.*s", static_cast<int>(kHelp.size()), kHelp.data());
    return kExitOk;
  }
  if (command == "--version") {
    qrx::StdoutPrintf("qrxfw %s\n", QRX_VERSION);
    return kExitOk;
  }
  if (command == "inspect") {
    if (argc < 3) return Usage("inspect needs a FILE");
    return qrx::fwtool::RunInspect(argc - 2, argv + 2);
  }
  BuildOptions options;
  std::string error;
  if (!ParseBuildOptions(argc - 2, argv + 2, &options, &error)) return Usage(error);
  if (options.positional.empty()) return Usage(std::string(command) + " needs OUT");
  if (command != "fwdat" && options.positional.size() > 1) {
    return Usage("unexpected argument '" + options.positional[1] + "'");
  }
  if (command == "sfi") return BuildSigned(options, false);
  if (command == "two-block") return BuildSigned(options, true);
  if (command == "bseq") return BuildBseq(options);
  if (command == "fwdat") return BuildContainer(options);
  return Usage("unknown command '" + std::string(command) + "'");
}
