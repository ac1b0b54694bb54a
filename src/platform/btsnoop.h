#pragma once

#include <cstdint>
#include <span>

namespace qrx {

// An HCI capture in the btsnoop format (version 1, H4 datalink), readable by
// the usual HCI analysers. Each packet is one record, written whole with one
// write as it passes, so a run that fails or is cut short leaves a complete
// file of everything up to that moment.

enum class BtsnoopDirection : uint8_t { kSent, kReceived };

// Starts a capture in a new (or emptied) file: 0 or the platform's error number.
int BtsnoopOpen(const char* hostPath);
void BtsnoopClose();

// A record that cannot be written (a full disk) ends the capture at once:
// the file is cut back to the records before it, so it ends on a whole one,
// and standard error says so: "qrxbpl: the capture FILE stopped at record N:
// <reason>", N counting records from 1. The run itself goes on.
struct BtsnoopState {
  uint32_t records = 0;          // whole records in the file
  uint32_t stoppedAtRecord = 0;  // the record that could not be written; 0: none
  int stopError = 0;             // the platform's error number then
};
BtsnoopState BtsnoopStatus();

namespace btsnoop_detail {
extern bool g_capturing;
void Write(BtsnoopDirection direction, std::span<const uint8_t> h4Packet);
}  // namespace btsnoop_detail

// One packet, its H4 type byte first. Without a capture this costs one test.
inline void BtsnoopRecord(BtsnoopDirection direction, std::span<const uint8_t> h4Packet) {
  if (btsnoop_detail::g_capturing) btsnoop_detail::Write(direction, h4Packet);
}

}  // namespace qrx
