#include "model/secure_send.h"

#include "image/fw_image.h"

namespace qrx::sim {

namespace {

// Fragment sizes of the key and the signature for each block kind; the first
// block's 256-byte key and signature do not fit one fragment.
struct BlockShape {
  uint8_t block;
  uint8_t scheme;  // the signature scheme that verifies this block
  std::array<uint16_t, 2> keyPieces;
  std::array<uint16_t, 2> signaturePieces;
  size_t pieces;
};

constexpr size_t kLastPieceSize = fwimage::kFirstKeySize - fwimage::kMaxFragmentData;

constexpr std::array<BlockShape, 2> kBlockShapes = {{
    {fwimage::kFirstBlockKind,
     0,
     {fwimage::kMaxFragmentData, kLastPieceSize},
     {fwimage::kMaxFragmentData, kLastPieceSize},
     2},
    {fwimage::kSecondBlockMarker,
     1,
     {fwimage::kSecondKeySize, 0},
     {fwimage::kSecondSignatureSize, 0},
     1},
}};

const BlockShape* ShapeOf(uint8_t block) {
  for (const BlockShape& shape : kBlockShapes) {
    if (shape.block == block) return &shape;
  }
  return nullptr;
}

constexpr size_t kBodyCommandHeader = 3;

// Whole commands that end exactly at the fragment's end.
bool WholeCommands(std::span<const uint8_t> data) {
  size_t at = 0;
  while (at < data.size()) {
    if (at + kBodyCommandHeader > data.size()) return false;
    at += kBodyCommandHeader + data[at + 2];
  }
  return at == data.size();
}

}  // namespace

SecureSendSession::Outcome SecureSendSession::Finish(DownloadStatus status) {
  status_ = status;
  stage_ = Stage::kEnded;
  return Outcome::kFinished;
}

SecureSendSession::Outcome SecureSendSession::Accept(std::span<const uint8_t> params) {
  if (stage_ == Stage::kEnded) return Outcome::kRefused;
  if (params.empty() || params[0] > kFragmentKey) return Finish(DownloadStatus::kMalformed);
  const uint8_t type = params[0];
  const std::span<const uint8_t> data = params.subspan(1);

  switch (stage_) {
    case Stage::kHeader: {
      if (type != kFragmentHeader) return Finish(DownloadStatus::kOutOfOrder);
      if (data.size() != fwimage::kHeaderSize) return Finish(DownloadStatus::kWrongSize);
      const BlockShape* shape = ShapeOf(data[0]);
      if (!shape) return Finish(DownloadStatus::kUnknownBlock);
      if (shape->scheme != scheme_) return Finish(DownloadStatus::kWrongBlockForScheme);
      const fwimage::HeaderFields fields = fwimage::ReadHeaderFields(data);
      block_ = fields.kind;
      bodyLength_ = fields.bodyLength;
      bodyChecksum_ = fields.bodyChecksum;
      patchNumber_ = fields.patchNumber;
      stage_ = Stage::kKey;
      piece_ = 0;
      return Outcome::kAccepted;
    }
    case Stage::kKey:
    case Stage::kSignature: {
      const BlockShape& shape = *ShapeOf(block_);
      const bool key = stage_ == Stage::kKey;
      if (type != (key ? kFragmentKey : kFragmentSignature)) {
        return Finish(DownloadStatus::kOutOfOrder);
      }
      const uint16_t expected = key ? shape.keyPieces[piece_] : shape.signaturePieces[piece_];
      if (data.size() != expected) return Finish(DownloadStatus::kWrongSize);
      if (++piece_ < shape.pieces) return Outcome::kAccepted;
      piece_ = 0;
      stage_ = key ? Stage::kSignature : Stage::kBody;
      // A header that records no body ends the download with its signature.
      if (stage_ == Stage::kBody && bodyLength_ == 0) {
        return Finish(fwimage::BodyChecksum({}) == bodyChecksum_
                          ? DownloadStatus::kSuccess
                          : DownloadStatus::kChecksumMismatch);
      }
      return Outcome::kAccepted;
    }
    case Stage::kBody:
      if (type != kFragmentBody) return Finish(DownloadStatus::kOutOfOrder);
      return AcceptBody(data);
    case Stage::kEnded:
      break;
  }
  return Outcome::kRefused;
}

SecureSendSession::Outcome SecureSendSession::AcceptBody(std::span<const uint8_t> data) {
  if (data.empty() || data.size() % 4 != 0 || data.size() > fwimage::kMaxFragmentData ||
      !WholeCommands(data)) {
    return Finish(DownloadStatus::kBadGrouping);
  }
  if (body_.size() + data.size() > bodyLength_) return Finish(DownloadStatus::kBodyTooLong);
  body_.insert(body_.end(), data.begin(), data.end());
  if (body_.size() < bodyLength_) return Outcome::kAccepted;
  return Finish(fwimage::BodyChecksum(body_) == bodyChecksum_ ? DownloadStatus::kSuccess
                                                              : DownloadStatus::kChecksumMismatch);
}

}  // namespace qrx::sim
