#include "app/run_report.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "app/build_stamp.h"
#include "app/run_driver.h"
#include "app/timing.h"
#include "fwlib/image_loaders.h"
#include "hci/hci_exchange.h"
#include "hci/step_lines.h"
#include "platform/btsnoop.h"
#include "platform/clock.h"
#include "platform/console.h"
#include "platform/error_text.h"
#include "platform/file_io.h"
#include "platform/output_file.h"
#include "platform/sha256.h"
#include "platform/system_query.h"
#include "run/download_progress.h"
#include "run/run_options.h"
#include "run/run_timers.h"
#include "transport/port_failure.h"

namespace qrx {

namespace {

using Json = nlohmann::ordered_json;

constexpr uint32_t kHashChunkBytes = 64 * 1024;
constexpr size_t kEventHeaderBytes = kEventParamLengthIndex + 1;  // H4 type, code, length
constexpr StepName kLastStepName = StepName::kManufacturerModeEvent;
constexpr StepOutcome kLastStepOutcome = StepOutcome::kEventFailed;

struct FirmwareFacts {
  std::string path;
  FirmwareFileType type = FirmwareFileType::kFwdat;
  uint64_t fileSize = 0;
  uint32_t imageSize = 0;
  std::string sha256;
};

struct RunRecord {
  bool active = false;
  Json arguments = Json::array();
  int64_t startMicroseconds = 0;
  std::string host;
  std::string transcript;          // standard error, as printed
  std::vector<std::string> lines;  // both streams, line by line
  Json answers = Json::array();
  std::optional<FirmwareFacts> firmware;
  Json libraryStatuses = Json::array();
  bool runEnded = false;
  bool timingShown = false;
};
RunRecord g_record;

// Size and SHA-256 of the whole file, read in chunks; false when it cannot be read.
bool ReadFileFacts(const std::string& path, FirmwareFacts& facts, bool wantHash) {
  FileHandle handle = kNoFileHandle;
  if (FileOpenForReading(path.c_str(), &handle) != 0) return false;
  bool ok = FileGetSize(handle, &facts.fileSize) == 0;
  if (ok && wantHash) {
    Sha256 hash;
    std::vector<uint8_t> chunk(kHashChunkBytes);
    for (uint64_t offset = 0; ok && offset < facts.fileSize;) {
      uint32_t got = 0;
      ok = FileReadAt(handle, offset, chunk.data(), kHashChunkBytes, &got) == 0 && got > 0;
      hash.Update(std::span(chunk.data(), got));
      offset += got;
    }
    if (ok) facts.sha256 = HexText(hash.Finish());
  }
  FileClose(handle);
  return ok;
}

std::string Trimmed(std::string_view text) {
  while (!text.empty() && (text.back() == ' ' || text.back() == '\n' || text.back() == '\r')) {
    text.remove_suffix(1);
  }
  return std::string(text);
}

// The HCI steps in the console transcript: each step's name, then the
// outcome that ended it on the same line or at the start of a later one.
Json StepsFrom(const std::string& transcript) {
  Json steps = Json::array();
  std::optional<std::string> open;
  size_t position = 0;
  while (position < transcript.size()) {
    size_t lineEnd = transcript.find('\n', position);
    lineEnd = lineEnd == std::string::npos ? transcript.size() : lineEnd + 1;
    size_t cursor = position;
    for (int n = 0; n <= static_cast<int>(kLastStepName); ++n) {
      const std::string_view name = StepNameText(static_cast<StepName>(n));
      if (transcript.compare(position, name.size(), name) == 0) {
        if (open) steps.push_back({{"step", *open}, {"result", "unfinished"}});
        open = Trimmed(name);
        cursor = position + name.size();
        break;
      }
    }
    if (open) {
      for (int o = 0; o <= static_cast<int>(kLastStepOutcome); ++o) {
        const std::string_view outcome = StepOutcomeText(static_cast<StepOutcome>(o));
        if (transcript.compare(cursor, outcome.size(), outcome) == 0) {
          steps.push_back({{"step", *open}, {"result", Trimmed(outcome)}});
          open.reset();
          break;
        }
      }
    }
    position = lineEnd;
  }
  if (open) steps.push_back({{"step", *open}, {"result", "unfinished"}});
  return steps;
}

// What makes a console line an error line: the loader's own complaints start
// with its name; every error and failure line of the design carries one of
// these words (any letter case), wherever it stands in the line, so a step
// line that ends in an error is one too.
constexpr std::string_view kOwnComplaint = "qrxbpl: ";
constexpr std::array<std::string_view, 10> kErrorWords = {
    "error",  "fail",       "invalid",  "unexpected",  "unable",
    "cannot", "incomplete", "too long", "not allowed", "please provide",
};

bool IsErrorLine(std::string_view line) {
  if (line.starts_with(kOwnComplaint)) return true;
  std::string lower(line);
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return std::any_of(kErrorWords.begin(), kErrorWords.end(), [&lower](std::string_view word) {
    return lower.find(word) != std::string::npos;
  });
}

Json ErrorLines() {
  Json errors = Json::array();
  for (const std::string& line : g_record.lines) {
    if (IsErrorLine(line)) errors.push_back(line);
  }
  return errors;
}

// ISO 8601 in UTC to the millisecond, from microseconds since 1970.
std::string UtcText(int64_t microseconds) {
  constexpr int64_t kMicrosecondsPerDay = 86400LL * 1000000;
  int64_t days = microseconds / kMicrosecondsPerDay;
  int64_t inDay = microseconds % kMicrosecondsPerDay;
  if (inDay < 0) {
    inDay += kMicrosecondsPerDay;
    --days;
  }
  // Days to a civil date, counted in 400-year eras from 0000-03-01.
  const int64_t z = days + 719468;
  const int64_t era = (z >= 0 ? z : z - 146096) / 146097;
  const int64_t dayOfEra = z - era * 146097;
  const int64_t yearOfEra =
      (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
  const int64_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
  const int64_t shiftedMonth = (5 * dayOfYear + 2) / 153;
  const int64_t day = dayOfYear - (153 * shiftedMonth + 2) / 5 + 1;
  const int64_t month = shiftedMonth < 10 ? shiftedMonth + 3 : shiftedMonth - 9;
  const int64_t year = yearOfEra + era * 400 + (month <= 2 ? 1 : 0);
  const int64_t milliseconds = inDay / 1000;
  std::array<char, 96> text{};  // room for any 64-bit figures
  std::snprintf(text.data(), text.size(), "%04lld-%02lld-%02lldT%02lld:%02lld:%02lld.%03lldZ",
                static_cast<long long>(year), static_cast<long long>(month),
                static_cast<long long>(day), static_cast<long long>(milliseconds / 3600000),
                static_cast<long long>(milliseconds / 60000 % 60),
                static_cast<long long>(milliseconds / 1000 % 60),
                static_cast<long long>(milliseconds % 1000));
  return text.data();
}

Json CaptureJson() {
  if (g_runOptions.btsnoopPath == nullptr) return nullptr;
  const BtsnoopState state = BtsnoopStatus();
  Json stopped = nullptr;
  if (state.stoppedAtRecord != 0) {
    stopped = {{"record", state.stoppedAtRecord},
               {"reason", Trimmed(SystemErrorText(state.stopError))}};
  }
  return {{"path", g_runOptions.btsnoopPath}, {"records", state.records}, {"stopped", stopped}};
}

Json TimingJson() {
  Json rows = Json::array();
  if (!g_record.runEnded) return rows;
  // A run that did not print its table is still timing its total.
  if (!g_record.timingShown) StopTimer(RunTimer::kTotal);
  for (const TimingRowValue& row : TimingRows(g_runTimers, g_runOptions.interface,
                                              static_cast<double>(PerformanceFrequency()))) {
    rows.push_back({{"task", row.task}, {"percent", row.percent}, {"seconds", row.seconds}});
  }
  return rows;
}

Json FirmwareJson() {
  if (!g_record.firmware) return nullptr;
  const FirmwareFacts& facts = *g_record.firmware;
  return {{"path", facts.path},
          {"kind", FirmwareTypeName(facts.type)},
          {"size", facts.fileSize},
          {"imageSize", facts.imageSize},
          {"sha256", facts.sha256}};
}

// The report as it stands; a run still going (or ended by a signal before it
// could finish) has no exit status and is not finished.
Json Render(std::optional<int> exitStatus) {
  Json report;
  report["program"] = "qrxbpl";
  report["version"] = QRX_VERSION;
  report["build"] = kBuildStamp;
  report["arguments"] = g_record.arguments;
  report["started"] = UtcText(g_record.startMicroseconds);
  report["host"] = g_record.host;
  const std::string link = LinkName();
  report["link"] = link.empty() ? Json(nullptr) : Json(link);
  report["finished"] = exitStatus.has_value();
  report["exitStatus"] = exitStatus ? Json(*exitStatus) : Json(nullptr);
  report["versionAnswers"] = g_record.answers;
  report["firmware"] = FirmwareJson();
  report["capture"] = CaptureJson();
  report["steps"] = StepsFrom(g_record.transcript);
  report["libraryStatus"] = g_record.libraryStatuses;
  report["errors"] = ErrorLines();
  // Why the serial port did not open, also when the terminal did not show it.
  if (!RecordedPortFailure().empty()) report["portFailure"] = RecordedPortFailure();
  report["timing"] = exitStatus ? TimingJson() : Json::array();
  report["seconds"] =
      static_cast<double>(WallClockMicroseconds() - g_record.startMicroseconds) / 1e6;
  report["console"] = g_record.transcript;
  return report;
}

// Replaces the file whole: a reader, or a run that ends here, finds the last
// checkpoint or this one, never a mix. 0, or the platform's error number.
int Store(std::optional<int> exitStatus) {
  // Invalid bytes in a console line must not cost the whole report.
  const std::string text =
      Render(exitStatus).dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
  return OutputFileReplace(g_runOptions.reportPath,
                           std::span(reinterpret_cast<const uint8_t*>(text.data()), text.size()));
}

void SayNotWritten(int error) {
  ConsolePrintf("qrxbpl: cannot write the report %s: %s\n", g_runOptions.reportPath,
                SystemErrorText(error));
}

// Rewritten at each milestone of the run (a handful per run, none per
// fragment), so a run ended by a signal still leaves a whole report of what
// it had reached. A failure here is reported once, by the final write.
void Checkpoint() {
  if (g_record.active) (void)Store(std::nullopt);
}

}  // namespace

bool RunReportBegin(int argc, const char* const* argv) {
  if (g_runOptions.reportPath == nullptr) return true;
  g_record = RunRecord{};
  g_record.startMicroseconds = WallClockMicroseconds();
  g_record.host = QueryHostName();
  for (int i = 1; i < argc; ++i) g_record.arguments.push_back(argv[i]);
  // The first checkpoint is the check that the file can be written at all.
  if (const int error = Store(std::nullopt); error != 0) {
    SayNotWritten(error);
    return false;
  }
  g_record.active = true;
  ConsoleRecordInto(&g_record.transcript);
  ConsoleLogLinesInto(&g_record.lines);
  return true;
}

void RunReportVersionAnswer(std::span<const uint8_t> event, const char* form, const char* mode) {
  if (!g_record.active || event.size() < kEventHeaderBytes) return;
  const size_t length = std::min(event.size(), kEventHeaderBytes + event[kEventParamLengthIndex]);
  g_record.answers.push_back(
      {{"hex", HexText(event.first(length))}, {"form", form}, {"mode", mode}});
  Checkpoint();
}

void RunReportLoadedFirmware(FirmwareFileType type, uint32_t imageSize) {
  const bool onTerminal = TerminalLinesWanted();
  if (!g_record.active && !onTerminal) return;
  FirmwareFacts facts;
  facts.path = LoadedFirmwarePath();
  facts.type = type;
  facts.imageSize = imageSize;
  if (facts.path.empty()) return;
  (void)ReadFileFacts(facts.path, facts, g_record.active);
  if (onTerminal) {
    ConsolePrintf("Firmware file: %s (%llu bytes)\n", facts.path.c_str(),
                  static_cast<unsigned long long>(facts.fileSize));
  }
  if (g_record.active) g_record.firmware = facts;
  Checkpoint();
}

void RunReportLibraryStatus(const char* stage, FwLibStatus status) {
  if (!g_record.active) return;
  g_record.libraryStatuses.push_back({{"stage", stage}, {"status", status}});
  Checkpoint();
}

void RunReportRunEnded(bool timingShown) {
  g_record.runEnded = true;
  g_record.timingShown = timingShown;
}

bool RunReportWrite(int exitStatus) {
  if (!g_record.active) return true;
  ConsoleRecordInto(nullptr);
  ConsoleLogLinesInto(nullptr);
  const int error = Store(exitStatus);
  g_record.active = false;
  if (error != 0) {
    SayNotWritten(error);
    return false;
  }
  return true;
}

}  // namespace qrx
