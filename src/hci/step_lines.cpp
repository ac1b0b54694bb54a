#include "hci/step_lines.h"

#include <array>

#include "platform/console.h"

namespace qrx {

namespace {

struct StepNameEntry {
  StepName name;
  std::string_view text;
};

// Stored already padded so the console bytes are visible here as they appear.
constexpr std::array kStepNames = {
    StepNameEntry{StepName::kReadVersion, "CMD: Read Norix Version                  "},
    StepNameEntry{StepName::kReadVersionEvent, "EVT: CommandComplete <Norix Version>     "},
    StepNameEntry{StepName::kVendorReset, "CMD: Norix HCI Reset                     "},
    StepNameEntry{StepName::kReadSecureBootParams, "CMD: Read Secure Boot Params             "},
    StepNameEntry{StepName::kSecureBootParamsEvent, "EVT: CommandComplete <Sec Boot Params>   "},
    StepNameEntry{StepName::kUpdateBootAddress, "SecureBoot Disabled. Update Boot Address "},
    StepNameEntry{StepName::kEnterManufacturerMode, "CMD: Enter Manufacturer Mode             "},
    StepNameEntry{StepName::kExitManufacturerMode, "CMD: Exit Manufacturer Mode              "},
    StepNameEntry{StepName::kManufacturerModeEvent, "EVT: CommandComplete <Manufacturer Mode> "},
};

struct StepOutcomeEntry {
  StepOutcome outcome;
  std::string_view text;
};

constexpr std::array kStepOutcomes = {
    StepOutcomeEntry{StepOutcome::kOk, "[OK]\n"},
    StepOutcomeEntry{StepOutcome::kSendFailed, "[FAIL] Send command failed\n"},
    StepOutcomeEntry{StepOutcome::kReadFailed, "[FAIL] Read event failed\n"},
    StepOutcomeEntry{StepOutcome::kInvalidEvent, "[FAIL] Invalid event\n"},
    StepOutcomeEntry{StepOutcome::kCannotRead, "[FAIL] Cannot read from device. Exit\n"},
    StepOutcomeEntry{StepOutcome::kUnexpectedEvent, "[FAIL] Received Unexpected Event\n"},
    StepOutcomeEntry{StepOutcome::kEventFailed, "[FAIL] Event failed\n"},
};

// Each table is indexed by its enum, so every row must sit at its own value.
constexpr bool NamesWellFormed() {
  for (size_t i = 0; i < kStepNames.size(); ++i) {
    if (static_cast<size_t>(kStepNames[i].name) != i) return false;
    if (kStepNames[i].text.size() != kStepNameWidth) return false;
  }
  return true;
}

constexpr bool OutcomesWellFormed() {
  for (size_t i = 0; i < kStepOutcomes.size(); ++i) {
    if (static_cast<size_t>(kStepOutcomes[i].outcome) != i) return false;
    if (kStepOutcomes[i].text.empty() || kStepOutcomes[i].text.back() != '\n') return false;
  }
  return true;
}

static_assert(NamesWellFormed(), "step names: enum order and 41-column padding");
static_assert(OutcomesWellFormed(), "step outcomes: enum order and line ends");

void PrintText(std::string_view text) {
  ConsolePrintf("%.*s", static_cast<int>(text.size()), text.data());
}

}  // namespace

std::string_view StepNameText(StepName name) {
  return kStepNames[static_cast<size_t>(name)].text;
}

std::string_view StepOutcomeText(StepOutcome outcome) {
  return kStepOutcomes[static_cast<size_t>(outcome)].text;
}

void PrintStepName(StepName name) {
  PrintText(StepNameText(name));
}

void PrintStepOutcome(StepOutcome outcome) {
  PrintText(StepOutcomeText(outcome));
}

}  // namespace qrx
