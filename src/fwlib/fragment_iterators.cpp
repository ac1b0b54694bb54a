#include "fwlib/fragment_iterators.h"

#include <algorithm>
#include <array>
#include <span>

#include "platform/byte_order.h"
#include "platform/trace.h"

namespace qrx {

namespace {

// A stage's data length of 0 stands for "as many whole body commands as close
// on a 4-byte multiple".
constexpr uint16_t kGroupedBody = 0;

struct StageStep {
  uint8_t fragmentType;
  uint16_t dataLength;
  uint32_t skipBefore;  // image bytes stepped over, unsent, before the fragment
  uint8_t nextStage;
};

// The first signature block, then the body.
constexpr std::array<StageStep, 6> kFirstBlockStages = {{
    {kFragmentHeader, 128, 0, 1},
    {kFragmentPublicKey, 252, 0, 2},
    {kFragmentPublicKey, 4, 0, 3},
    {kFragmentSignature, 252, 4, 4},  // the 4-byte key field is never sent
    {kFragmentSignature, 4, 0, 5},
    {kFragmentBody, kGroupedBody, 0, 5},
}};
constexpr uint8_t kFirstBlockBodyStage = 5;

// The second signature block (the whole first block is stepped over), then the body.
constexpr std::array<StageStep, 4> kSecondBlockStages = {{
    {kFragmentHeader, 128, kFirstBlockEnd, 1},
    {kFragmentPublicKey, 96, 0, 2},
    {kFragmentSignature, 96, 0, 3},
    {kFragmentBody, kGroupedBody, 0, 3},
}};

constexpr uint8_t kSignatureSchemeFirstBlock = 0;
constexpr uint8_t kSignatureSchemeSecondBlock = 1;

bool ArgumentsValid(const FwLibContext* context, const uint8_t* buffer, const uint32_t* length) {
  return context != nullptr && buffer != nullptr && length != nullptr && *length != 0 &&
         context->magic == kFwLibContextMagic;
}

// Statuses other than success and exhaustion report no command.
FwLibStatus Finish(FwLibStatus status, uint32_t* length) {
  if (status != kFwLibSuccess && status != kFwLibImageExhausted && length != nullptr) *length = 0;
  return status;
}

bool HasImage(const FwLibContext& context) {
  const uint8_t* data = context.imageData;
  return data != nullptr && reinterpret_cast<uintptr_t>(data) != UINTPTR_MAX;
}

// True when count bytes starting `from` bytes past the position lie inside the
// image. Sums are taken in 64 bits so a 32-bit wrap cannot pass.
bool Inside(const FwLibContext& context, uint64_t from, uint64_t count) {
  return uint64_t{context.imageOffset} + from + count <= context.imageSize;
}

// Moves the position; a step that would wrap or pass the end moves nothing.
bool Advance(FwLibContext* context, uint32_t count) {
  if (!Inside(*context, 0, count)) return false;
  context->imageOffset = context->imageOffset + count;
  context->imageData = context->imageData + count;
  return true;
}

// The start of every iterator: past the end is malformed, at the end is done.
FwLibStatus CheckPosition(const FwLibContext& context) {
  if (context.imageOffset > context.imageSize) return kFwLibInvalidEvent;
  if (context.imageOffset == context.imageSize) return kFwLibImageExhausted;
  if (!HasImage(context)) return kFwLibInvalidParameter;
  return kFwLibSuccess;
}

// Whole body commands from the position until their total is a multiple of 4.
// The total stays within 252, so it is kept in 8 bits as designed.
FwLibStatus GroupBody(const FwLibContext& context, uint8_t* total) {
  uint8_t sum = 0;
  do {
    if (!Inside(context, sum, kHciCommandHeaderSize)) return kFwLibInvalidEvent;
    const uint8_t parameterLength = context.imageData[sum + 2];
    if (sum + kHciCommandHeaderSize > kSecureSendMaxData) return kFwLibInvalidEvent;
    sum = static_cast<uint8_t>(sum + kHciCommandHeaderSize);
    if (sum + parameterLength > kSecureSendMaxData) return kFwLibInvalidEvent;
    sum = static_cast<uint8_t>(sum + parameterLength);
    if (!Inside(context, 0, sum)) return kFwLibInvalidEvent;
  } while (sum % 4 != 0);
  *total = sum;
  return kFwLibSuccess;
}

// Writes one Secure Send carrying dataLength image bytes from the position.
FwLibStatus Emit(FwLibContext* context, std::span<uint8_t> out, uint32_t* length,
                 uint8_t fragmentType, uint32_t dataLength) {
  if (!Inside(*context, 0, dataLength)) return kFwLibInvalidEvent;
  if (dataLength + kSecureSendHeaderSize > out.size()) return kFwLibInvalidEvent;
  out[2] = static_cast<uint8_t>(dataLength + 1);
  out[3] = fragmentType;
  std::copy_n(context->imageData, dataLength, out.begin() + kSecureSendHeaderSize);
  Advance(context, dataLength);
  *length = dataLength + static_cast<uint32_t>(kSecureSendHeaderSize);
  return kFwLibSuccess;
}

FwLibStatus RunStage(FwLibContext* context, std::span<uint8_t> out, uint32_t* length,
                     const StageStep& step) {
  if (step.skipBefore != 0 && !Advance(context, step.skipBefore)) return kFwLibInvalidEvent;
  // Advanced before the emit checks: a stage whose fragment fails is not retried.
  context->signatureStage = step.nextStage;
  uint32_t dataLength = step.dataLength;
  if (dataLength == kGroupedBody) {
    uint8_t total = 0;
    const FwLibStatus status = GroupBody(*context, &total);
    if (status != kFwLibSuccess) return status;
    dataLength = total;
  }
  return Emit(context, out, length, step.fragmentType, dataLength);
}

// Common opening of the signed-image iterators after the scheme check:
// room for the Secure Send header and its opcode in place.
bool PrepareSecureSend(std::span<uint8_t> out) {
  if (out.size() < kHciCommandHeaderSize || out.size() < kSecureSendHeaderSize) return false;
  WriteLe16(out, 0, kSecureSendOpcode);
  return true;
}

FwLibStatus NextBseq(FwLibContext* context, uint8_t* buffer, uint32_t* length) {
  if (!ArgumentsValid(context, buffer, length)) return kFwLibInvalidParameter;
  for (;;) {
    const FwLibStatus position = CheckPosition(*context);
    if (position != kFwLibSuccess) return position;
    const uint8_t recordType = context->imageData[0];
    if (recordType == kBseqEventRecord) {
      // Type, event code, parameter length, parameters: nothing of it is sent.
      if (!Inside(*context, 1, 2)) return kFwLibInvalidEvent;
      if (!Advance(context, 3u + context->imageData[2])) return kFwLibInvalidEvent;
      continue;
    }
    if (recordType != kBseqCommandRecord) return kFwLibInvalidEvent;
    Advance(context, 1);
    if (!Inside(*context, 0, kHciCommandHeaderSize)) return kFwLibInvalidEvent;
    if (*length < kHciCommandHeaderSize) return kFwLibInvalidEvent;
    const uint32_t commandLength = kHciCommandHeaderSize + context->imageData[2];
    if (commandLength > *length || !Inside(*context, 0, commandLength)) return kFwLibInvalidEvent;
    std::copy_n(context->imageData, commandLength, buffer);
    Advance(context, commandLength);
    *length = commandLength;
    return kFwLibSuccess;
  }
}

FwLibStatus NextSfi(FwLibContext* context, uint8_t* buffer, uint32_t* length) {
  if (!ArgumentsValid(context, buffer, length)) return kFwLibInvalidParameter;
  const FwLibStatus position = CheckPosition(*context);
  if (position != kFwLibSuccess) return position;
  const std::span<uint8_t> out(buffer, *length);
  if (!PrepareSecureSend(out)) return kFwLibInvalidParameter;
  const uint8_t stage = context->signatureStage;
  if (stage >= kFirstBlockStages.size()) return kFwLibInvalidEvent;
  return RunStage(context, out, length, kFirstBlockStages[stage]);
}

FwLibStatus NextDualSigned(FwLibContext* context, uint8_t* buffer, uint32_t* length) {
  if (!ArgumentsValid(context, buffer, length)) return kFwLibInvalidParameter;
  const FwLibStatus position = CheckPosition(*context);
  if (position != kFwLibSuccess) return position;
  const uint8_t* version = context->versionData;
  if (version == nullptr || context->versionLength <= kSignatureSchemeIndex) {
    return kFwLibInvalidParameter;
  }
  const uint8_t scheme = version[kSignatureSchemeIndex];
  if (scheme != kSignatureSchemeFirstBlock && scheme != kSignatureSchemeSecondBlock) {
    return kFwLibInvalidParameter;
  }
  const std::span<uint8_t> out(buffer, *length);
  if (!PrepareSecureSend(out)) return kFwLibInvalidParameter;
  const uint8_t stage = context->signatureStage;

  if (scheme == kSignatureSchemeSecondBlock) {
    // Scheme 1 trusts that the second block is there; it never reads the marker.
    if (stage >= kSecondBlockStages.size()) return kFwLibInvalidParameter;
    return RunStage(context, out, length, kSecondBlockStages[stage]);
  }
  if (stage >= kFirstBlockStages.size()) return kFwLibInvalidParameter;
  if (stage == kFirstBlockBodyStage && context->imageOffset == kFirstBlockEnd &&
      context->imageData[0] == kSecondBlockMarker) {
    if (context->imageSize < kSecondBlockEnd) return kFwLibInvalidEvent;
    Advance(context, kSecondBlockSize);
    // An image that ends with the second block now meets the body grouping,
    // not the exhaustion check, and is refused as malformed; intended.
  }
  return RunStage(context, out, length, kFirstBlockStages[stage]);
}

}  // namespace

FwLibStatus NextBseqCommand(FwLibContext* context, uint8_t* buffer, uint32_t* length) {
  return Finish(NextBseq(context, buffer, length), length);
}

FwLibStatus NextSfiCommand(FwLibContext* context, uint8_t* buffer, uint32_t* length) {
  return Finish(NextSfi(context, buffer, length), length);
}

FwLibStatus NextDualSignedCommand(FwLibContext* context, uint8_t* buffer, uint32_t* length) {
  return Finish(NextDualSigned(context, buffer, length), length);
}

FwLibStatus GetNextCommand(FwLibContext* context, uint8_t* buffer, uint32_t* length) {
  if (!ArgumentsValid(context, buffer, length)) {
    TraceRecord(kTraceLevelError, "GetNextCommand", "invalid argument");
    return Finish(kFwLibInvalidParameter, length);
  }
  FwLibStatus status = kFwLibInvalidEvent;
  switch (context->isOperational) {
    case 1:
      status = NextBseqCommand(context, buffer, length);
      break;
    case 0:
      status = context->isTlvForm != 0 ? NextDualSignedCommand(context, buffer, length)
                                       : NextSfiCommand(context, buffer, length);
      break;
    default:
      TraceRecord(kTraceLevelError, "GetNextCommand", "no iterator for mode %u",
                  static_cast<unsigned>(context->isOperational));
      break;
  }
  if (status != kFwLibSuccess && status != kFwLibImageExhausted) {
    TraceRecord(kTraceLevelError, "GetNextCommand", "status %u at offset %u", status,
                static_cast<unsigned>(context->imageOffset));
  }
  return Finish(status, length);
}

}  // namespace qrx
