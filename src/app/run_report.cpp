#include "app/run_report.h"

#include <array>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "app/build_stamp.h"
#include "app/timing.h"
#include "fwlib/image_loaders.h"
#include "hci/hci_exchange.h"
#include "hci/step_lines.h"
#include "platform/clock.h"
#include "platform/console.h"
#include "platform/error_text.h"
#include "platform/file_io.h"
#include "platform/output_file.h"
#include "platform/sha256.h"
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
  std::string transcript;
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
  while (!text.empty() && (text.back() == ' ' || text.back() == '\n')) text.remove_suffix(1);
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

Json ErrorsFrom(const std::string& transcript) {
  Json errors = Json::array();
  size_t position = 0;
  while (position < transcript.size()) {
    size_t lineEnd = transcript.find('\n', position);
    if (lineEnd == std::string::npos) lineEnd = transcript.size();
    const std::string_view line(transcript.data() + position, lineEnd - position);
    if (line.starts_with("ERROR:")) errors.push_back(std::string(line));
    position = lineEnd + 1;
  }
  return errors;
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
  report["build"] = kBuildStamp;
  report["arguments"] = g_record.arguments;
  report["finished"] = exitStatus.has_value();
  report["exitStatus"] = exitStatus ? Json(*exitStatus) : Json(nullptr);
  report["versionAnswers"] = g_record.answers;
  report["firmware"] = FirmwareJson();
  report["steps"] = StepsFrom(g_record.transcript);
  report["libraryStatus"] = g_record.libraryStatuses;
  report["errors"] = ErrorsFrom(g_record.transcript);
  // Why the serial port did not open, also when the terminal did not show it.
  if (!RecordedPortFailure().empty()) report["portFailure"] = RecordedPortFailure();
  report["timing"] = exitStatus ? TimingJson() : Json::array();
  report["seconds"] =
      static_cast<double>(WallClockMicroseconds() - g_record.startMicroseconds) / 1e6;
  report["console"] = g_record.transcript;
  return report;
}

// Replaces the file's content with one write. 0, or the platform's error number.
int Store(std::optional<int> exitStatus) {
  // Invalid bytes in a console line must not cost the whole report.
  const std::string text =
      Render(exitStatus).dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
  OutputFileHandle file = kNoOutputFile;
  int error = OutputFileCreate(g_runOptions.reportPath, &file);
  if (error == 0) {
    error = OutputFileWrite(file,
                            std::span(reinterpret_cast<const uint8_t*>(text.data()), text.size()));
    const int closeError = OutputFileClose(file);
    if (error == 0) error = closeError;
  }
  return error;
}

// Rewritten at each milestone of the run (a handful per run, none per
// fragment), so a run ended by a signal still leaves a whole report of what
// it had reached. A failure here is reported once, by the final write.
void Checkpoint() {
  if (g_record.active) (void)Store(std::nullopt);
}

}  // namespace

void RunReportBegin(int argc, const char* const* argv) {
  if (g_runOptions.reportPath == nullptr) return;
  g_record = RunRecord{};
  g_record.active = true;
  g_record.startMicroseconds = WallClockMicroseconds();
  for (int i = 1; i < argc; ++i) g_record.arguments.push_back(argv[i]);
  ConsoleRecordInto(&g_record.transcript);
  Checkpoint();
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
  const int error = Store(exitStatus);
  g_record.active = false;
  if (error != 0) {
    ConsolePrintf("qrxbpl: cannot write the report %s: %s\n", g_runOptions.reportPath,
                  SystemErrorText(error));
    return false;
  }
  return true;
}

}  // namespace qrx
