#include "fwlib/fwlib_classify.h"

#include <algorithm>
#include <new>

#include "fwlib/version_answer.h"
#include "platform/trace.h"

namespace qrx {

namespace {

constexpr const char* kTag = "FWLIB";
constexpr const char* kBootloaderWord = "Bootloader";
constexpr const char* kOperationalWord = "Operational";
constexpr const char* kLegacyRomWord = "Legacy(ROM)";
constexpr const char* kModernRamWord = "Modern(RAM)";

void Discard(FwLibContext* context) {
  delete[] context->versionData;
  delete context;
}

// Stores a stand-alone test's verdict and reports its word.
FwLibStatus ReportVerdict(const uint8_t* answer, uint8_t* flag, bool verdict, const char* whenSet,
                          const char* otherwise) {
  if (answer == nullptr || flag == nullptr) return kFwLibInvalidParameter;
  *flag = verdict ? 1 : 0;
  TraceRecord(kTraceLevelInfo, kTag, "%s", verdict ? whenSet : otherwise);
  return kFwLibSuccess;
}

}  // namespace

FwLibStatus FwLibClassify(const uint8_t* answer, uint8_t answerLength, FwLibContext** result) {
  if (answer == nullptr || result == nullptr || answerLength == 0) return kFwLibInvalidParameter;

  auto* context = new (std::nothrow) FwLibContext{};
  if (context == nullptr) {
    *result = nullptr;
    return kFwLibOutOfMemory;
  }
  context->magic = kFwLibContextMagic;
  auto* copy = new (std::nothrow) uint8_t[answerLength];
  if (copy == nullptr) {
    delete context;
    *result = nullptr;
    return kFwLibOutOfMemory;
  }
  std::copy_n(answer, answerLength, copy);
  context->versionData = copy;
  context->versionLength = answerLength;

  bool bootloader = false;
  switch (answerLength) {
    case kTlvBootloaderVersionLength:
      bootloader = answer[kTlvBootloaderPositions.imageType] == kTlvImageTypeBootloader;
      if (!bootloader) {
        TraceRecord(kTraceLevelError, kTag, "90-byte answer from %s firmware", kOperationalWord);
        Discard(context);
        *result = nullptr;
        return kFwLibInvalidEvent;
      }
      context->isTlvForm = 1;
      break;
    case kTlvOperationalVersionLength:
      // Each long length belongs to one mode, so the two accept opposite
      // modes. Intended.
      bootloader = answer[kTlvOperationalPositions.imageType] == kTlvImageTypeBootloader;
      if (bootloader) {
        TraceRecord(kTraceLevelError, kTag, "80-byte answer from the %s", kBootloaderWord);
        Discard(context);
        *result = nullptr;
        return kFwLibInvalidEvent;
      }
      context->isTlvForm = 1;
      break;
    case kLegacyVersionLength:
      bootloader = answer[kLegacyFirmwareVariantAt] == kLegacyBootloaderVariant;
      break;
    default:
      // Status 0 with no context, as designed; the initialisation turns it
      // into 12. The record is not handed out, so it is dropped here.
      TraceRecord(kTraceLevelError, kTag, "answer of %u bytes", answerLength);
      Discard(context);
      return kFwLibSuccess;
  }
  context->isOperational = bootloader ? 0 : 1;
  TraceRecord(kTraceLevelInfo, kTag, "%s", bootloader ? kBootloaderWord : kOperationalWord);
  *result = context;
  return kFwLibSuccess;
}

FwLibStatus FwLibIsBootloaderLegacy(const uint8_t* answer, uint8_t* flag) {
  const bool verdict =
      answer != nullptr && answer[kLegacyFirmwareVariantAt] == kLegacyBootloaderVariant;
  return ReportVerdict(answer, flag, verdict, kBootloaderWord, kOperationalWord);
}

FwLibStatus FwLibIsBootloaderTlvBoot(const uint8_t* answer, uint8_t* flag) {
  const bool verdict =
      answer != nullptr && answer[kTlvBootloaderPositions.imageType] == kTlvImageTypeBootloader;
  return ReportVerdict(answer, flag, verdict, kBootloaderWord, kOperationalWord);
}

FwLibStatus FwLibIsBootloaderTlvOp(const uint8_t* answer, uint8_t* flag) {
  const bool verdict =
      answer != nullptr && answer[kTlvOperationalPositions.imageType] == kTlvImageTypeBootloader;
  return ReportVerdict(answer, flag, verdict, kBootloaderWord, kOperationalWord);
}

FwLibStatus FwLibIsLegacyRom(const uint8_t* answer, uint8_t* flag) {
  const bool verdict =
      answer != nullptr && answer[kLegacyHardwareVariantAt] < kFirstModernHardwareVariant;
  return ReportVerdict(answer, flag, verdict, kLegacyRomWord, kModernRamWord);
}

}  // namespace qrx
