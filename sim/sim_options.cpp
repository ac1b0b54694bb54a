#include "sim_options.h"

#include <cstdio>
#include <optional>
#include <string_view>

#include "model/line_rate.h"
#include "model/secure_send.h"

namespace qrx::sim {

namespace {

constexpr uint64_t kMaxLatencyMs = 1000;

// "--name=value" or "--name value"; advances *i past what it used.
std::optional<std::string> TakeValue(std::string_view arg, std::string_view name, int argc,
                                     const char* const* argv, int* i) {
  if (arg == name) {
    if (*i + 1 >= argc) return std::nullopt;
    return std::string(argv[++*i]);
  }
  return std::string(arg.substr(name.size() + 1));
}

bool Matches(std::string_view arg, std::string_view name) {
  return arg == name || (arg.size() > name.size() && arg.substr(0, name.size()) == name &&
                         arg[name.size()] == '=');
}

}  // namespace

FaultPlan MakeFaultPlan(const std::vector<FaultSpec>& faults) {
  FaultPlan plan;
  for (const FaultSpec& rule : faults) plan.Add(rule);
  return plan;
}

bool ParseSimOptions(int argc, const char* const* argv, SimOptions* options, std::string* error) {
  SimOptions& o = *options;
  std::optional<Profile> profile;
  std::vector<std::string> overrides;
  std::optional<bool> secureBoot;

  for (int i = 1; i < argc; ++i) {
    const std::string_view arg = argv[i];
    const auto value = [&](std::string_view name) { return TakeValue(arg, name, argc, argv, &i); };
    if (arg == "--help" || arg == "-h") {
      o.help = true;
    } else if (arg == "--version") {
      o.version = true;
    } else if (arg == "--pty") {
      o.front = Front::kPty;
    } else if (arg == "--tcp") {
      o.front = Front::kTcp;
    } else if (arg == "--once") {
      o.once = true;
    } else if (arg == "--delayed-ack") {
      o.delayedAck = true;
    } else if (arg == "--paced") {
      o.paced = true;
    } else if (arg == "--print-key") {
      o.printKey = true;
    } else if (Matches(arg, "--port")) {
      const auto text = value("--port");
      const auto port = text ? ParseNumber(*text) : std::nullopt;
      if (!port || *port > 0xFFFF) {
        *error = "bad --port value";
        return false;
      }
      o.port = static_cast<uint16_t>(*port);
    } else if (Matches(arg, "--latency")) {
      const auto text = value("--latency");
      const auto ms = text ? ParseNumber(*text) : std::nullopt;
      if (!ms || *ms > kMaxLatencyMs) {
        *error = "bad --latency value";
        return false;
      }
      o.latencyMs = static_cast<uint32_t>(*ms);
    } else if (Matches(arg, "--bind")) {
      const auto text = value("--bind");
      if (!text || text->empty()) {
        *error = "--bind needs an address";
        return false;
      }
      o.bindAddress = *text;
    } else if (Matches(arg, "--profile")) {
      const auto text = value("--profile");
      profile = text ? FindProfile(*text) : std::nullopt;
      if (!profile) {
        *error = "unknown --profile '" + text.value_or("") + "'";
        return false;
      }
    } else if (Matches(arg, "--set")) {
      const auto text = value("--set");
      if (!text) {
        *error = "--set needs FIELD=VALUE";
        return false;
      }
      overrides.push_back(*text);
    } else if (Matches(arg, "--secure-boot")) {
      const auto text = value("--secure-boot");
      if (text != "on" && text != "off") {
        *error = "--secure-boot takes on or off";
        return false;
      }
      secureBoot = *text == "on";
    } else if (Matches(arg, "--log")) {
      const auto text = value("--log");
      if (!text || text->empty()) {
        *error = "--log needs a file name";
        return false;
      }
      o.logPath = *text;
    } else if (Matches(arg, "--fault")) {
      const auto text = value("--fault");
      if (!text) {
        *error = "--fault needs a fault";
        return false;
      }
      const auto rule = ParseFaultSpec(*text, error);
      if (!rule) return false;
      o.faults.push_back(*rule);
    } else {
      *error = "unknown option '" + std::string(arg) + "'";
      return false;
    }
  }

  if (o.paced && o.front != Front::kPty) {
    *error = "--paced needs --pty";
    return false;
  }
  if (o.latencyMs > 0 && !o.paced) {
    *error = "--latency needs --paced";
    return false;
  }
  // The profile first, then the single fields on top of it, in order.
  if (profile) o.controller = ConfigForProfile(*profile);
  for (const std::string& assignment : overrides) {
    if (!ApplyFieldOverride(o.controller, assignment, error)) return false;
  }
  if (secureBoot) o.controller.secureBoot = *secureBoot;
  return true;
}

std::string SimHelpText() {
  std::string text =
      "Usage: qrxvps [options]\n"
      "A simulated controller for the loader, over TCP (Virtual Platform Server framing)\n"
      "or as a UART at the far end of a pseudo-terminal.\n"
      "\n"
      "Front:\n"
      "  --tcp               serve TCP (the default). First line on stdout:\n"
      "                      \"qrxvps: listening on ADDR:PORT\"\n"
      "  --port N            TCP port (default 12360; 0 picks a free one)\n"
      "  --bind ADDR         TCP listen address (default 127.0.0.1)\n"
      "  --delayed-ack       TCP: acknowledge as an ordinary server does (the kernel's\n"
      "                      delayed ACKs) instead of at once after every read\n"
      "  --pty               serve a UART on a new pseudo-terminal instead. First line on\n"
      "                      stdout: \"qrxvps: pty /dev/pts/N\"\n"
      "  --paced             pty: carry bytes both ways no faster than the line's rate\n"
      "                      (10 bit times a byte, following every rate switch); each\n"
      "                      session ends with \"qrxvps: wire N ns, B bytes to the\n"
      "                      controller, B bytes to the host\" after the line's rate\n"
      "  --latency MS        with --paced: hold bytes MS ms more each way, as a USB\n"
      "                      serial adapter's latency timer does (0 to 1000)\n"
      "\n"
      "Controller:\n"
      "  --profile NAME      legacy-boot | legacy-op | tlv-boot (default) | tlv-op:\n"
      "                      9-byte or long version answers, starting in the bootloader or\n"
      "                      in operational firmware\n"
      "  --set FIELD=VALUE   override one field (repeatable; decimal or 0x hex):\n";
  for (const FieldInfo& field : kFields) {
    std::string line = "                        " + std::string(field.name);
    line.resize(42, ' ');
    text += line + std::string(field.help) + "\n";
  }
  text +=
      "  --secure-boot on|off  reported by Read Secure Boot Params (default on)\n"
      "  --print-key         print the firmware container key of the bootloader answer\n"
      "                      (legacy: the 9-byte answer; long: the 12-byte image key), exit\n"
      "\n"
      "Session:\n"
      "  --once              exit when the first session ends (TCP: the client\n"
      "                      disconnects; pty: the host closes the terminal)\n"
      "  --log FILE          write one line per received command: opcode, length and\n"
      "                      parameters as upper-case hex bytes, e.g. \"05 FC 01 FF\"\n"
      "  --fault KIND[@N|@*][/OPCODE]  inject a fault (repeatable) at the N-th command\n"
      "                      (default 1; * = every command), counting only commands with\n"
      "                      OPCODE (hex) when given. KIND:\n";
  for (const FaultKindInfo& info : kFaultKinds) {
    std::string line = "                        " + std::string(info.name);
    line.resize(42, ' ');
    text += line + std::string(info.help) + "\n";
  }
  text +=
      "                      failed-completion counts download completions, not commands.\n"
      "  --help              this text\n"
      "  --version           the program's name and version\n"
      "\n"
      "Every session (TCP connection, or pty open to close) starts a freshly powered\n"
      "controller as configured. Over TCP it first sends the ready event 04 0E 03 01 00 00;\n"
      "after any vendor reset it sends the reset's Command Complete and the ready event.\n"
      "Server messages are a 4-byte little-endian count of the bytes that follow, then\n"
      "those bytes; one message answers one poll.\n"
      "\n"
      "Answers: Read Secure Boot Params returns the boot address (4 bytes, LE), the\n"
      "signature scheme, secure boot 1/0 (event byte 12) and two zero bytes. A DDC write\n"
      "of 03 86 01 01 (0xFC8B) stops the per-fragment Command Complete of Secure Send\n"
      "until the next reset. Secure Send is refused (status 0x0C) by operational firmware\n"
      "and after a download has ended; a completed download followed by the boot-address\n"
      "reset boots it (patch number from its header). Other commands get a Command\n"
      "Complete with status 0; opcodes 0x..2F also the vendor event 04 FF 02 19 00.\n"
      "Bytes that cannot start a command (H4 type other than 0x01) are dropped.\n"
      "\n"
      "UART line rate: the controller starts at 115200 bit/s and follows Set Baud Rate\n"
      "(0xFC06, code) and Change Baud Rate (0xFC10, bit/s) at once, without answering.\n"
      "Bytes the host writes while its terminal rate differs from the controller's by more\n"
      "than 2% are lost, and so are packets the controller sends meanwhile (both reported\n"
      "on stderr).\nRate codes:";
  for (const RateCode& entry : kRateCodes) {
    text += " " + std::to_string(entry.code) + "=" + std::to_string(entry.rate);
  }
  text +=
      "\n\n"
      "Download completion status (vendor event 04 FF 02 06 SS):\n";
  for (const DownloadStatusInfo& info : kDownloadStatusTexts) {
    char code[16];
    std::snprintf(code, sizeof(code), "  0x%02X  ", static_cast<unsigned>(info.status));
    text += code + std::string(info.text) + "\n";
  }
  return text;
}

}  // namespace qrx::sim
