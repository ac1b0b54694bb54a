#include "platform/btsnoop.h"

#include <array>
#include <string>
#include <vector>

#include "platform/byte_order.h"
#include "platform/clock.h"
#include "platform/console.h"
#include "platform/error_text.h"
#include "platform/output_file.h"

namespace qrx {

namespace {

constexpr std::array<uint8_t, 8> kMagic = {'b', 't', 's', 'n', 'o', 'o', 'p', '\0'};
constexpr uint32_t kVersion = 1;
constexpr uint32_t kDatalinkH4 = 1002;
constexpr size_t kFileHeaderSize = 16;

// Record header: original length, included length, flags, cumulative drops,
// timestamp (microseconds since year 0).
constexpr size_t kRecordHeaderSize = 24;
constexpr size_t kOriginalLengthAt = 0;
constexpr size_t kIncludedLengthAt = 4;
constexpr size_t kFlagsAt = 8;
constexpr size_t kDropsAt = 12;
constexpr size_t kTimestampAt = 16;
constexpr uint32_t kFlagReceived = 0x01;
constexpr uint32_t kFlagCommandOrEvent = 0x02;
// Microseconds from 0000-01-01 to 1970-01-01 on the format's clock.
constexpr int64_t kEpochOffsetMicroseconds = 0x00DCDDB30F2F8000;

constexpr uint8_t kH4Command = 0x01;
constexpr uint8_t kH4Event = 0x04;

OutputFileHandle g_file = kNoOutputFile;
std::string g_path;
uint64_t g_wholeBytes = 0;  // the header and every whole record
BtsnoopState g_state;

void StopAt(int error) {
  g_state.stoppedAtRecord = g_state.records + 1;
  g_state.stopError = error;
  // What part of the record went out is taken back; if even that fails, the
  // reader still finds the whole records before it.
  (void)OutputFileTruncate(g_file, g_wholeBytes);
  BtsnoopClose();
  ConsolePrintf("qrxbpl: the capture %s stopped at record %u: %s\n", g_path.c_str(),
                g_state.stoppedAtRecord, SystemErrorText(error));
}

}  // namespace

namespace btsnoop_detail {

bool g_capturing = false;

void Write(BtsnoopDirection direction, std::span<const uint8_t> h4Packet) {
  const auto length = static_cast<uint32_t>(h4Packet.size());
  uint32_t flags = direction == BtsnoopDirection::kReceived ? kFlagReceived : 0;
  if (!h4Packet.empty() && (h4Packet[0] == kH4Command || h4Packet[0] == kH4Event)) {
    flags |= kFlagCommandOrEvent;
  }
  std::vector<uint8_t> record(kRecordHeaderSize + h4Packet.size());
  WriteBe32(record, kOriginalLengthAt, length);
  WriteBe32(record, kIncludedLengthAt, length);
  WriteBe32(record, kFlagsAt, flags);
  WriteBe32(record, kDropsAt, 0);
  WriteBe64(record, kTimestampAt,
            static_cast<uint64_t>(WallClockMicroseconds() + kEpochOffsetMicroseconds));
  std::copy(h4Packet.begin(), h4Packet.end(), record.begin() + kRecordHeaderSize);
  // A capture that cannot be written stops; the run itself goes on.
  if (const int error = OutputFileWrite(g_file, record); error != 0) {
    StopAt(error);
    return;
  }
  g_wholeBytes += record.size();
  ++g_state.records;
}

}  // namespace btsnoop_detail

int BtsnoopOpen(const char* hostPath) {
  BtsnoopClose();
  OutputFileHandle file = kNoOutputFile;
  if (const int error = OutputFileCreate(hostPath, &file); error != 0) return error;
  std::array<uint8_t, kFileHeaderSize> header{};
  std::copy(kMagic.begin(), kMagic.end(), header.begin());
  WriteBe32(header, kMagic.size(), kVersion);
  WriteBe32(header, kMagic.size() + 4, kDatalinkH4);
  if (const int error = OutputFileWrite(file, header); error != 0) {
    OutputFileClose(file);
    return error;
  }
  g_file = file;
  g_path = hostPath;
  g_wholeBytes = header.size();
  g_state = BtsnoopState{};
  btsnoop_detail::g_capturing = true;
  return 0;
}

BtsnoopState BtsnoopStatus() {
  return g_state;
}

void BtsnoopClose() {
  btsnoop_detail::g_capturing = false;
  if (g_file != kNoOutputFile) OutputFileClose(g_file);
  g_file = kNoOutputFile;
}

}  // namespace qrx
