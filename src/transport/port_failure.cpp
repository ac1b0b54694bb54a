#include "transport/port_failure.h"

#include <cinttypes>
#include <cstdio>

#include "platform/console.h"
#include "platform/error_text.h"
#include "run/download_progress.h"
#include "transport/port_diagnosis.h"
#include "transport/serial_port_list.h"

namespace qrx {
namespace {

std::string& Recorded() {
  static std::string text;
  return text;
}

template <typename... Args>
std::string Line(const char* format, Args... args) {
  const int needed = std::snprintf(nullptr, 0, format, args...);
  std::string text(static_cast<size_t>(needed > 0 ? needed : 0), '\0');
  std::snprintf(text.data(), text.size() + 1, format, args...);
  return text;
}

std::string ExistingPorts() {
  const SerialPortList list = ListSerialPorts();
  if (!list.available) return "qrxbpl: this system cannot list its serial ports\n";
  if (list.ports.empty()) return "qrxbpl: no serial ports found on this machine\n";
  std::string text = "qrxbpl: the serial ports of this machine:";
  for (const SerialPortInfo& port : list.ports) text += " " + port.device;
  return text + "\n";
}

}  // namespace

std::vector<std::string> ExplainPortFailure(const std::string& path, int error) {
  const char* device = path.c_str();
  std::vector<std::string> lines = {
      Line("qrxbpl: cannot open the serial port %s: %s\n", device, SystemErrorText(error))};
  const PortDiagnosis why = DiagnosePortFailure(device, error);
  switch (why.kind) {
    case PortFailureKind::kPermission:
      if (why.missingGroup.empty()) {
        lines.push_back(Line("qrxbpl: the device's permissions refuse it; see: ls -l %s\n", device));
        break;
      }
      lines.push_back(Line("qrxbpl: %s belongs to the group '%s', and user '%s' is not in it\n",
                           device, why.missingGroup.c_str(), why.userName.c_str()));
      lines.push_back(Line("qrxbpl: add the user with: sudo usermod -aG %s %s (then log in again)\n",
                           why.missingGroup.c_str(), why.userName.c_str()));
      break;
    case PortFailureKind::kHeld:
      if (why.holderPid == 0) {
        lines.push_back(Line("qrxbpl: %s is in use by another program\n", device));
        break;
      }
      lines.push_back(Line("qrxbpl: %s is held by process %" PRId64 " (%s)\n", device,
                           why.holderPid, why.holderName.c_str()));
      break;
    case PortFailureKind::kMissing:
      lines.push_back(ExistingPorts());
      break;
    case PortFailureKind::kOther:
      break;
  }
  return lines;
}

void NotePortFailure(const std::string& path, int error) {
  const std::vector<std::string> lines = ExplainPortFailure(path, error);
  std::string& recorded = Recorded();
  recorded.clear();
  for (const std::string& line : lines) recorded += line;
  if (TerminalLinesWanted()) ConsolePrintf("%s", recorded.c_str());
}

const std::string& RecordedPortFailure() {
  return Recorded();
}

}  // namespace qrx
