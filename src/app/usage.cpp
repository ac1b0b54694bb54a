#include <array>

#include "app/build_stamp.h"
#include "app/options.h"
#include "platform/console.h"

namespace qrx {

namespace {

// Printed exactly as written, slips and stale promises included (-v writes no
// log, -t is not used, 6000000 is accepted on ASIC); intended.
constexpr std::array<const char*, 30> kUsageLines = {
    "Usage: qrxbpl.exe (-i <interface>) (-p <portname>) [-h <host interface>]\n",
    "                  [-b <boot_address>] [-t <read_timeout>] [-f <flag>] [-nocc] [-fw <path>]\n",
    "                  (-r <hci_baudrate>[-bd])\n\n",
    "-p: Name of COM/TCP port when using UART/TCP Interface. Default port for TCP.\n",
    "-r: Supported Baudrates,\n\tFPGA -\n",
    "\t\t9600, 19200, 38400, 57600\n\t\t115200, 230400, 460800,\n",
    "\t\t921600, 1843200, 3250000, 3000000\n\n",
    "\tASIC -\n",
    "\t\t9600, 19200, 38400, 2000000\n\t\t3000000, 3250000, 3714286, 4333333, 6500000\n",
    "-i: Interface selection 2: UART 3: TCP/IP\n",
    "-h: Host inteface selection 1: FPGA 2: ASIC\n",
    "-b: boot address for Norix Reset command,\n\tLegacy - \n\t\t0x24800\n\n\tVelm and newer - "
    "\n\t\t0x100800\n",
    "-bd: this is a flag to enable downloading the bddata (no value required)\n",
    "-t: Read timeout. Default 1000ms. Set a value 0 to disable timeout\n",
    "-f: flags which modify program behavior: 1 = SKIP_RESET (Skip final reset)\n",
    "-v: verbose output on terminal & creates the C:\\TEMP>LogHci_qrxbpl.log dump\n",
    "-a: Virtual Platform Server's IP address\n",
    "-fw: Firmware file path (FWDAT/SFI/BSEQ)\n",
    "-nocc: Disable Command complete event during FW downloading (DDC CCE Block)\n",
    "*******************************************************************************\n\n\n",
    "Sample uses: \n\n",
    "UART on FPGA: qrxbpl.exe -i 2 -h 1 -p COM3 -r 115200 -b 0x24800\n",
    "UART on FPGA w/ SFI: qrxbpl.exe -i 2 -h 1 -p COM3 -r 115200 -b 0x24800 -fw "
    "370b1206000234e00.sfi\n",
    "UART on FPGA w/ FWDAT: qrxbpl.exe -i 2 -h 1 -p COM3 -r 115200 -b 0x24800 -fw qrxfw.dat\n",
    "UART on ASIC: qrxbpl.exe -i 2 -h 2 -p COM3 -r 3000000 -b 0x24800\n",
    "UART on ASIC w/ SFI: qrxbpl.exe -i 2 -h 2 -p COM3 -r 3000000 -b 0x24800 -fw "
    "370b1206000234e00.sfi\n",
    "UART on ASIC w/ FWDAT: qrxbpl.exe -i 2 -h 2 -p COM3 -r 3000000 -b 0x24800 -fw qrxfw.dat\n",
    "UART with CCE enabled w/ FWDAT: qrxbpl.exe -i 2 -h 2 -nocc -p COM3 -r 3000000 -b 0x24800 "
    "-fw qrxfw.dat\n",
    "TCP/IP : qrxbpl.exe -i 3 -a 127.0.0.1\n",
    "TCP/IP : qrxbpl.exe -i 3 -a 127.0.0.1 -p 12345 \n",
};

constexpr const char* kBannerFormat = "qrxbpl.exe - qRX Patch Loader (build %s)\n";

using Printer = void (*)(const char* format, ...);

void PrintUsageWith(Printer print) {
  print(kBannerFormat, kBuildStamp);
  for (const char* line : kUsageLines) print("%s", line);
}

}  // namespace

void PrintUsage() {
  PrintUsageWith(ConsolePrintf);
}

void PrintUsageOnStdout() {
  PrintUsageWith(StdoutPrintf);
  StdoutFlush();
}

void PrintBannerOnStdout() {
  StdoutPrintf("qrxbpl %s\n", QRX_VERSION);
  StdoutPrintf(kBannerFormat, kBuildStamp);
  StdoutFlush();
}

}  // namespace qrx
