#pragma once

// The controller's side of a signed-image download: it checks each Secure
// Send fragment against the layout it expects (header, key, signature, body),
// reassembles the body and checks it against the length and CRC-32 recorded
// in the header.

#include <array>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

namespace qrx::sim {

// Fragment types (first parameter byte of Secure Send).
constexpr uint8_t kFragmentHeader = 0x00;
constexpr uint8_t kFragmentBody = 0x01;
constexpr uint8_t kFragmentSignature = 0x02;
constexpr uint8_t kFragmentKey = 0x03;

// Status of the download, carried by the completion vendor event.
enum class DownloadStatus : uint8_t {
  kSuccess = 0x00,
  kOutOfOrder = 0x01,           // fragment type not the one due now
  kWrongSize = 0x02,            // header, key or signature fragment of the wrong size
  kBadGrouping = 0x03,          // body fragment not whole commands / not 4n / over 252
  kChecksumMismatch = 0x04,     // body CRC-32 differs from the header's
  kBodyTooLong = 0x05,          // more body than the header records
  kUnknownBlock = 0x06,         // header's first byte is neither 0x01 nor 0x06
  kMalformed = 0x07,            // no fragment type, or a type above 3
  kWrongBlockForScheme = 0x08,  // block the controller's signature scheme does not verify
  kInjectedFailure = 0x10,      // fault injection: the completion reports a failure
};

struct DownloadStatusInfo {
  DownloadStatus status;
  std::string_view text;
};

constexpr std::array<DownloadStatusInfo, 10> kDownloadStatusTexts = {{
    {DownloadStatus::kSuccess, "success"},
    {DownloadStatus::kOutOfOrder, "fragment out of order"},
    {DownloadStatus::kWrongSize, "header, key or signature fragment of the wrong size"},
    {DownloadStatus::kBadGrouping, "body fragment not whole commands, 4-byte multiple, <= 252"},
    {DownloadStatus::kChecksumMismatch, "body checksum differs from the header"},
    {DownloadStatus::kBodyTooLong, "more body bytes than the header records"},
    {DownloadStatus::kUnknownBlock, "header's first byte is neither 0x01 nor 0x06"},
    {DownloadStatus::kMalformed, "Secure Send without a known fragment type"},
    {DownloadStatus::kWrongBlockForScheme, "block not the one the signature scheme verifies"},
    {DownloadStatus::kInjectedFailure, "failure injected by --fault failed-completion"},
}};

class SecureSendSession {
 public:
  explicit SecureSendSession(uint8_t signatureScheme) : scheme_(signatureScheme) {}

  enum class Outcome : uint8_t {
    kAccepted,  // fragment taken, download goes on
    kFinished,  // this fragment ended the download; Status() says how
    kRefused,   // the download had already ended; fragment ignored
  };
  // params: the Secure Send parameters (fragment type, then data).
  Outcome Accept(std::span<const uint8_t> params);

  bool Ended() const { return stage_ == Stage::kEnded; }
  DownloadStatus Status() const { return status_; }
  uint8_t PatchNumber() const { return patchNumber_; }
  uint32_t BodyBytes() const { return static_cast<uint32_t>(body_.size()); }

 private:
  enum class Stage : uint8_t { kHeader, kKey, kSignature, kBody, kEnded };
  Outcome Finish(DownloadStatus status);
  Outcome AcceptBody(std::span<const uint8_t> data);

  uint8_t scheme_;
  Stage stage_ = Stage::kHeader;
  DownloadStatus status_ = DownloadStatus::kSuccess;
  uint8_t block_ = 0;  // header's first byte
  size_t piece_ = 0;   // index within the key or signature pieces
  uint32_t bodyLength_ = 0;
  uint32_t bodyChecksum_ = 0;
  uint8_t patchNumber_ = 0;
  std::vector<uint8_t> body_;
};

}  // namespace qrx::sim
