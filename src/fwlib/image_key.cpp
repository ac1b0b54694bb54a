#include "fwlib/image_key.h"

#include "fwlib/version_answer.h"
#include "platform/byte_order.h"
#include "platform/trace.h"

namespace qrx {

namespace {

constexpr size_t kKeyIdentityAAt = 0;
constexpr size_t kKeyIdentityBAt = 2;
constexpr size_t kKeyImageTypeAt = 4;
constexpr size_t kKeyWordAt = 5;
constexpr size_t kKeyByteAt = 7;
constexpr size_t kKeyDwordAt = 8;
constexpr uint8_t kIdentityLowBits = 0x0F;
constexpr int kIdentityShift = 4;

uint16_t AnswerLe16(const FwLibContext& context, size_t position) {
  return static_cast<uint16_t>(AnswerByte(context, position) |
                               (AnswerByte(context, position + 1) << 8));
}

uint16_t Identity(const FwLibContext& context, size_t wordAt, size_t byteAt) {
  return static_cast<uint16_t>((AnswerLe16(context, wordAt) << kIdentityShift) |
                               (AnswerByte(context, byteAt) & kIdentityLowBits));
}

void CopyAnswerBytes(const FwLibContext& context, size_t from, FwImageKey& key, size_t to,
                     size_t count) {
  for (size_t i = 0; i < count; ++i) key[to + i] = AnswerByte(context, from + i);
}

}  // namespace

FwLibStatus FwLibBuildImageKey(const FwLibContext* context, FwImageKey* key) {
  if (context == nullptr || context->magic != kFwLibContextMagic || key == nullptr) {
    return kFwLibInvalidParameter;
  }
  key->fill(0);
  const TlvKeyPositions& at =
      context->isOperational == 1 ? kTlvOperationalPositions : kTlvBootloaderPositions;
  WriteLe16(*key, kKeyIdentityAAt, Identity(*context, kTlvIdentityWordAAt, kTlvIdentityByteAAt));
  WriteLe16(*key, kKeyIdentityBAt, Identity(*context, kTlvIdentityWordBAt, kTlvIdentityByteBAt));
  (*key)[kKeyImageTypeAt] = AnswerByte(*context, at.imageType);
  CopyAnswerBytes(*context, at.keyWord, *key, kKeyWordAt, 2);
  CopyAnswerBytes(*context, at.keyByte, *key, kKeyByteAt, 1);
  CopyAnswerBytes(*context, at.keyDword, *key, kKeyDwordAt, 4);

  const FwImageKey& k = *key;
  TraceRecord(kTraceLevelVerbose, "FWLIB",
              "image key %02x %02x %02x %02x %02x %02x %02x %02x %02x %02x %02x %02x", k[0], k[1],
              k[2], k[3], k[4], k[5], k[6], k[7], k[8], k[9], k[10], k[11]);
  return kFwLibSuccess;
}

}  // namespace qrx
