#include "app/options.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "app/rate_tables.h"
#include "app/run_driver.h"
#include "hci/vendor_commands.h"
#include "platform/byte_order.h"
#include "platform/console.h"
#include "run/firmware_type.h"

namespace qrx {
namespace {

const std::string kCustom =
    "Firmware file will be picked from custom location:'C:\\Program Files\\Norix\\Bluetooth' \n";
const std::string kBseqRefused = "BSEQ Firmware download with DDC CCE enabled is not allowed!!\n\n";

const std::string kUsage =
    "qrxbpl.exe - qRX Patch Loader (build Sat Apr 11 16:19:37 2020)\n"
    "Usage: qrxbpl.exe (-i <interface>) (-p <portname>) [-h <host interface>]\n"
    "                  [-b <boot_address>] [-t <read_timeout>] [-f <flag>] [-nocc] [-fw <path>]\n"
    "                  (-r <hci_baudrate>[-bd])\n"
    "\n"
    "-p: Name of COM/TCP port when using UART/TCP Interface. Default port for TCP.\n"
    "-r: Supported Baudrates,\n"
    "\tFPGA -\n"
    "\t\t9600, 19200, 38400, 57600\n"
    "\t\t115200, 230400, 460800,\n"
    "\t\t921600, 1843200, 3250000, 3000000\n"
    "\n"
    "\tASIC -\n"
    "\t\t9600, 19200, 38400, 2000000\n"
    "\t\t3000000, 3250000, 3714286, 4333333, 6500000\n"
    "-i: Interface selection 2: UART 3: TCP/IP\n"
    "-h: Host inteface selection 1: FPGA 2: ASIC\n"
    "-b: boot address for Norix Reset command,\n"
    "\tLegacy - \n"
    "\t\t0x24800\n"
    "\n"
    "\tVelm and newer - \n"
    "\t\t0x100800\n"
    "-bd: this is a flag to enable downloading the bddata (no value required)\n"
    "-t: Read timeout. Default 1000ms. Set a value 0 to disable timeout\n"
    "-f: flags which modify program behavior: 1 = SKIP_RESET (Skip final reset)\n"
    "-v: verbose output on terminal & creates the C:\\TEMP>LogHci_qrxbpl.log dump\n"
    "-a: Virtual Platform Server's IP address\n"
    "-fw: Firmware file path (FWDAT/SFI/BSEQ)\n"
    "-nocc: Disable Command complete event during FW downloading (DDC CCE Block)\n"
    "*******************************************************************************\n"
    "\n"
    "\n"
    "Sample uses: \n"
    "\n"
    "UART on FPGA: qrxbpl.exe -i 2 -h 1 -p COM3 -r 115200 -b 0x24800\n"
    "UART on FPGA w/ SFI: qrxbpl.exe -i 2 -h 1 -p COM3 -r 115200 -b 0x24800 -fw "
    "370b1206000234e00.sfi\n"
    "UART on FPGA w/ FWDAT: qrxbpl.exe -i 2 -h 1 -p COM3 -r 115200 -b 0x24800 -fw qrxfw.dat\n"
    "UART on ASIC: qrxbpl.exe -i 2 -h 2 -p COM3 -r 3000000 -b 0x24800\n"
    "UART on ASIC w/ SFI: qrxbpl.exe -i 2 -h 2 -p COM3 -r 3000000 -b 0x24800 -fw "
    "370b1206000234e00.sfi\n"
    "UART on ASIC w/ FWDAT: qrxbpl.exe -i 2 -h 2 -p COM3 -r 3000000 -b 0x24800 -fw qrxfw.dat\n"
    "UART with CCE enabled w/ FWDAT: qrxbpl.exe -i 2 -h 2 -nocc -p COM3 -r 3000000 -b 0x24800 -fw "
    "qrxfw.dat\n"
    "TCP/IP : qrxbpl.exe -i 3 -a 127.0.0.1\n"
    "TCP/IP : qrxbpl.exe -i 3 -a 127.0.0.1 -p 12345 \n";

// Every field as "key=value" in field order, then where the reset template's boot address stands.
std::vector<std::string> Fields(const RunOptions& o, uint32_t boot) {
  auto n = [](auto v) { return std::to_string(v); };
  auto t = [](const char* p) { return std::string(p == nullptr ? "-" : p); };
  // clang-format off
  return {"i=" + n(o.interface), "h=" + n(o.hostInterface), "p=" + t(o.portName),
          "a=" + t(o.serverAddress.data()), "b=" + n(o.bootAddressGiven), "t=" + n(o.readTimeoutMs),
          "f=" + n(o.skipReset), "bd=" + n(o.downloadBdData), "change=" + n(o.changeBaudRate),
          "code=" + n(o.baudRateCode), "rate=" + n(o.baudRate), "unlisted=" + n(o.baudRateUnlisted),
          "v=" + n(o.verbose), "fw=" + t(o.firmwarePath), "nocc=" + n(o.noCommandComplete),
          "boot=" + n(boot)};
  // clang-format on
}

// The fields that differ from a fresh record.
std::string Changed(const RunOptions& o) {
  const auto now = Fields(o, ReadLe32(g_bootAddressResetTemplate, kResetBootAddressIndex));
  const auto was = Fields(RunOptions{}, kInitialBootAddress);
  std::string out;
  for (size_t i = 0; i < now.size(); ++i) {
    if (now[i] != was[i]) out += (out.empty() ? "" : " ") + now[i];
  }
  return out;
}

struct OptionsCase {
  std::vector<const char*> args;
  bool ok;
  std::string console;
  std::string fields;
};

const std::string kTooLongAddress(1024, 'a'), kLongest(1023, 'b');

// clang-format off
const std::vector<OptionsCase> kCases = {
    {{"-i"}, false, "Invalid number of arguments\n\n" + kUsage, ""},
    {{"-p", "COM3", "-i", "2"}, false, "'-i' is required as the first argument, please provide it.\n\n", ""},
    {{"-i", "4"}, false, "Invalid Interface, recheck value passed to -i\n\n", "i=4"},
    {{"-i", " +3xyz", "stray", "-x"}, true, kCustom, "i=3"},
    {{"-i", "2", "-h", "2", "-r", "3000000"}, true, kCustom, "i=2 h=2 change=1 code=11 rate=3000000"},
    {{"-i", "2", "-r", "3000000", "-h", "2"}, true, kCustom, "i=2 h=2 change=1 code=10 rate=3000000"},
    {{"-i", "2", "-h", "2", "-r", "3000000", "-r", "115200"}, true, kCustom,
     "i=2 h=2 rate=115200 unlisted=1"},
    {{"-i", "2", "-b", "0100", "-b", "0X24800"}, true,
     "Reset[8] = 64 Reset[9] = 0 Reset[10] = 0 Reset[11] = 0 \n"
     "Reset[8] = 0 Reset[9] = 72 Reset[10] = 2 Reset[11] = 0 \n" + kCustom, "i=2 b=1 boot=149504"},
    {{"-i", "2", "-t", "99999999999", "-f", "1", "-v", "-bd"}, true, kCustom, "i=2 t=2147483647 f=1 bd=1 v=1"},
    {{"-i", "2", "-f", "2", "-v"}, false, "Invalid input, no value passed to '-f'\n\n" + kCustom, "i=2"},
    {{"-i", "2", "-p", "COM3", "-f"}, true, kCustom, "i=2 p=COM3"},
    {{"-i", "2", "-NOCC", "-BD"}, true, kCustom, "i=2 nocc=1"},
    {{"-i", "2", "-bd", "-nocc"}, false, kCustom + kBseqRefused, "i=2 bd=1 nocc=1"},
    // A value spelled like a later option of the chain also counts as that option.
    {{"-i", "2", "-p", "-v"}, true, kCustom, "i=2 p=-v v=1"},
    {{"-i", "2", "-fw", "-nocc", "-bd"}, false, kBseqRefused, "i=2 bd=1 fw=-nocc nocc=1"},
    {{"-i", "2", "-h", "-r", "3000000"}, false, "Invalid host interface, recheck value passed to '-h'\n\n" + kCustom,
     "i=2 h=0"},
    {{"-i", "3", "-a", kTooLongAddress.c_str(), "-p", "1"}, false, kCustom, "i=3"},
    {{"-i", "3", "-a", kLongest.c_str()}, true, kCustom, "i=3 a=" + kLongest},
    {{"-i", "3", "-a", kLongest.c_str() + 1}, true, kCustom, "i=3 a=" + kLongest.substr(1)},
    {{"-i", "2", "-h"}, false, "Invalid host interface, no value passed to '-h'\n\n" + kCustom, "i=2"},
    {{"-i", "3", "-a"}, false, "Invalid IP address, no value passed to '-a'\n\n" + kCustom, "i=3"},
    {{"-i", "2", "-p"}, false, "Invalid port name, no value passed to '-p'\n\n" + kCustom, "i=2"},
    {{"-i", "2", "-b"}, false, "Invalid boot address, no value passed to '-b'\n\n" + kCustom, "i=2"},
    {{"-i", "2", "-t"}, false, "Invalid time out value, no value passed to '-t'\n\n" + kCustom, "i=2"},
    {{"-i", "2", "-r"}, false, "Invalid input, no value passed to '-r'\n\n" + kCustom, "i=2"},
    {{"-i", "2", "-fw"}, false, "Invalid input, no value passed to '-fw'\n\n" + kCustom, "i=2"},
};
// clang-format on

// Each list is parsed from fresh state with no terminator after it, so a scan
// that runs past its end is caught by the address sanitizer.
TEST(ParseCommandLine, PrintsAndStoresExactlyWhatEachArgumentListCallsFor) {
  for (const OptionsCase& c : kCases) {
    std::vector<const char*> args = c.args;
    args.insert(args.begin(), "qrxbpl.exe");
    std::string line;
    for (const char* arg : args) line += std::string(arg).substr(0, 40) + " ";
    SCOPED_TRACE(line);
    g_runOptions = RunOptions{};
    RestoreResetTemplate();
    ConsoleCapture console;
    EXPECT_EQ(ParseCommandLine(static_cast<int>(args.size()), args.data()), c.ok);
    EXPECT_EQ(console.Err(), c.console);
    EXPECT_EQ(Changed(g_runOptions), c.fields);
  }
  RestoreResetTemplate();
}

// Every row of both tables, and each rate's neighbours, which no table lists:
// code 4 then, marked unlisted on an ASIC only. -1 stands for such a rate, 0
// for the ASIC row that keeps the code it had.
TEST(MapBaudRate, GivesEachListedRateItsCodeAndAnyOtherTheDefault) {
  constexpr std::tuple<uint32_t, int, int> kRows[] = {
      {230400, 5, 5},    {460800, 6, 6},    {921600, 7, 7},    {1843200, 8, 8},   {3250000, 9, 9},
      {3000000, 10, 11}, {2000000, -1, 10}, {3686400, -1, 12}, {3714286, -1, 12}, {4333333, -1, 13},
      {6500000, -1, 14}, {6000000, -1, 0},  {115200, -1, -1}};
  for (const auto& [listed, fpga, asic] : kRows) {
    for (const uint32_t rate : {listed - 1, listed, listed + 1}) {
      for (const int32_t host : {kHostInterfaceFpga, kHostInterfaceAsic}) {
        SCOPED_TRACE(std::to_string(rate) + " on host " + std::to_string(host));
        const int want = rate != listed ? -1 : host == kHostInterfaceFpga ? fpga : asic;
        const RateMapping got = MapBaudRate(host, rate, {0x77, false});
        EXPECT_EQ(got.code, want < 0 ? kDefaultBaudRateCode : want == 0 ? 0x77 : want);
        EXPECT_EQ(got.unlisted, want < 0 && host == kHostInterfaceAsic);
      }
    }
  }
}

// Hardware variant (event byte 8) 0x11 and up reads the secure boot
// parameters; variant 0x0B only from revision (byte 9) 0x10.
TEST(WantsSecureBootParams, FromVariant0x11OrVariant0x0BRevision0x10) {
  const std::pair<std::array<uint8_t, 2>, bool> kCases[] = {
      {{0x10, 0xFF}, false}, {{0x11, 0x00}, true}, {{0xFF, 0x00}, true}, {{0x0A, 0xFF}, false},
      {{0x0B, 0x0F}, false}, {{0x0B, 0x10}, true}, {{0x0C, 0x10}, false}};
  for (const auto& [bytes, wanted] : kCases) {
    std::array<uint8_t, kEventBufferSize> event{};
    event[8] = bytes[0], event[9] = bytes[1];
    EXPECT_EQ(WantsSecureBootParams(event), wanted) << int{bytes[0]} << " " << int{bytes[1]};
  }
}

// A -fw or --firmware name takes the type of the first extension found
// anywhere in it, in the order .dat, .sfi, .bseq; any other is refused.
TEST(FirmwareTypeFromName, FirstKnownExtensionAnywhereInThePath) {
  const std::pair<const char*, std::string> kNames[] = {
      {"fw.dat", "FWDAT"},     {"x.sfi", "SFI"},       {"x.bseq", "BSEQ"},
      {"a.bseq/x.sfi", "SFI"}, {"a.sfi.dat", "FWDAT"}, {"x.bin", "none"}};
  for (const auto& [path, name] : kNames) {
    FirmwareFileType type{};
    EXPECT_EQ(FirmwareTypeFromName(path, type) ? FirmwareTypeName(type) : "none", name) << path;
  }
}

}  // namespace
}  // namespace qrx
