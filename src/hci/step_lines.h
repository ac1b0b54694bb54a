#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace qrx {

// Progress lines of the HCI steps: the step's name padded to a fixed column,
// printed before the exchange, then one outcome text that ends the line.
constexpr size_t kStepNameWidth = 41;

enum class StepName : uint8_t {
  kReadVersion,
  kReadVersionEvent,
  kVendorReset,
  kReadSecureBootParams,
  kSecureBootParamsEvent,
  kUpdateBootAddress,
  kEnterManufacturerMode,
  kExitManufacturerMode,
  kManufacturerModeEvent,
};

enum class StepOutcome : uint8_t {
  kOk,
  kSendFailed,
  kReadFailed,
  kInvalidEvent,
  kCannotRead,
  kUnexpectedEvent,
  kEventFailed,
};

std::string_view StepNameText(StepName name);
std::string_view StepOutcomeText(StepOutcome outcome);

// Both write to the console (standard error); the name leaves the line open.
void PrintStepName(StepName name);
void PrintStepOutcome(StepOutcome outcome);

}  // namespace qrx
