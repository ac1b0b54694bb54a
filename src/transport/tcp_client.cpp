#include "transport/tcp_client.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <span>

#include "platform/btsnoop.h"
#include "platform/byte_order.h"
#include "platform/console.h"
#include "platform/trace.h"
#include "run/run_options.h"
#include "transport/h4_packet_types.h"
#include "transport/tcp_socket.h"

namespace qrx {

namespace {

constexpr const char* kTraceTag = "TcpClient";

// Frame of one HCI command to the server: type, length of the rest, reserved.
constexpr size_t kDefaultBufLen = 512;
constexpr size_t kFrameHeaderLength = 12;
constexpr size_t kFrameTypeOffset = 0;
constexpr size_t kFrameLengthOffset = 4;
constexpr size_t kFrameReservedOffset = 8;
constexpr uint32_t kDataMessageType = 1;
constexpr uint32_t kFrameLengthWordSize = 4;  // the length word counts the reserved word too

// Every server message opens with a prefix the client skips unread.
constexpr size_t kServerPrefixLength = 4;
constexpr size_t kMaxPacketLength = 272;
constexpr size_t kServerAddressLength = 1024;
constexpr size_t kRawSendLimit = 24;

// Sent before every read: message type 0 with the words 16, 0, 8, 0, 10000.
constexpr std::array<uint8_t, 24> kPollMessage = {0x00, 0x00, 0x00, 0x00, 0x10, 0x00, 0x00, 0x00,
                                                  0x00, 0x00, 0x00, 0x00, 0x08, 0x00, 0x00, 0x00,
                                                  0x00, 0x00, 0x00, 0x00, 0x10, 0x27, 0x00, 0x00};

// Error numbers of the bounded copy, shown in hexadecimal (16 and 22).
constexpr int kCopyInvalidArgument = 22;
constexpr int kCopyOutOfRange = 34;

struct PacketLayout {
  uint8_t type;
  uint32_t headerLength;  // after the type byte
  size_t lengthOffset;    // of the parameter length, from the type byte
  bool wideLength;        // 16-bit parameter length (ACL)
};

constexpr std::array<PacketLayout, 4> kPacketLayouts = {{
    {0x01, 3, 3, false},  // HCI command
    {0x02, 4, 3, true},   // ACL data
    {0x03, 3, 3, false},  // SCO data
    {0x04, 2, 2, false},  // HCI event
}};

struct TcpClientState {
  SocketHandle socket = kInvalidSocket;
  int32_t lastResult = 0;  // kept for diagnosis; no decision reads it
  std::array<char, kServerAddressLength> serverAddress{};
  std::array<uint8_t, kMaxPacketLength> accumulation{};
  bool readTimeoutSet = false;  // on this connection
};

TcpClientState g_tcp;

void ReportCopyFailure(uint8_t* destination, uint32_t capacity, int error) {
  // A failing bounded copy leaves its destination zeroed.
  std::memset(destination, 0, capacity);
  ConsolePrintf("ERROR: memcpy_s failed! Error=%x\n", error);
}

// The option value is built as the two words {0, t}, but the option is one
// 32-bit millisecond count read from the first, so the effective setting is 0:
// reads wait until the server answers or the connection fails, and t has no
// effect. Intended. Since the value never changes, it is set once per
// connection: a call after the first success costs nothing, and a failed one
// is reported and tried again on the next read. A test station's bound
// (--tcp-timeout) goes in the word the option is read from, so each read
// then fails after it like any failed read.
void SetReadTimeout(uint32_t timeoutMs) {
  if (g_tcp.readTimeoutSet) return;
  std::array<uint8_t, kReceiveTimeoutOptionSize> optionValue{};
  WriteLe32(optionValue, 0, g_runOptions.tcpReadTimeoutMs);
  WriteLe32(optionValue, 4, timeoutMs);
  if (SetReceiveTimeout(g_tcp.socket, optionValue) != 0) {
    StdoutWidePrintf(L"ERROR:  to set timeout error: %d\n", LastSocketError());
    StdoutFlush();
    return;
  }
  g_tcp.readTimeoutSet = true;
}

// One socket read of at most `limit` bytes into a cleared scratch buffer.
// The count read, or -1 after the failure messages.
int64_t ReadServerMessage(std::array<uint8_t, kDefaultBufLen>& scratch, size_t limit) {
  scratch.fill(0);
  const int64_t received =
      ReceiveFromSocket(g_tcp.socket, std::span(scratch.data(), std::min(limit, scratch.size())));
  if (received < 0) {
    StdoutWidePrintf(L"ERROR: Failed to read data from socket error: %d\n", LastSocketError());
    StdoutFlush();
    ConsolePrintf("ERROR: unable to read data from device\n");
  }
  return received;
}

}  // namespace

void SetServerAddress(const char* source, size_t count) {
  if (count == 0) return;
  if (source != nullptr && count <= g_tcp.serverAddress.size()) {
    std::memcpy(g_tcp.serverAddress.data(), source, count);
    return;
  }
  // The address stays empty; the look-up at connect then gets an empty host name.
  g_tcp.serverAddress.fill('\0');
  ConsolePrintf("ERROR: memcpy_s failed! Error=%x\n",
                source == nullptr ? kCopyInvalidArgument : kCopyOutOfRange);
}

bool ConnectToServer(const char* portText) {
  g_tcp.lastResult = SocketLibraryStartup();
  if (g_tcp.lastResult != 0) {
    ConsolePrintf("ERROR: WSAStartup failed with error: %d\n", g_tcp.lastResult);
    return false;
  }
  // The buffer may be filled to its last byte; the look-up needs a terminator.
  std::array<char, kServerAddressLength + 1> node{};
  std::copy(g_tcp.serverAddress.begin(), g_tcp.serverAddress.end(), node.begin());
  const char* service = portText != nullptr ? portText : kDefaultServerPort;
  TraceRecord(kTraceLevelInfo, kTraceTag, "connecting to %s port %s", node.data(), service);

  ServerAddressList found;
  g_tcp.lastResult = LookUpTcpServer(node.data(), service, found);
  if (g_tcp.lastResult != 0) {
    ConsolePrintf("ERROR: getaddrinfo failed with error: %d\n", g_tcp.lastResult);
    SocketLibraryCleanup();
    return false;
  }
  // Only the first result is tried.
  g_tcp.socket = OpenSocketForFirst(found);
  if (g_tcp.socket == kInvalidSocket) {
    ConsolePrintf("ERROR: Socket failed with error: %ld\n", static_cast<long>(LastSocketError()));
    FreeServerAddressList(found);
    SocketLibraryCleanup();
    return false;
  }
  g_tcp.lastResult = ConnectToFirst(g_tcp.socket, found);
  if (g_tcp.lastResult != 0) {
    TraceRecord(kTraceLevelError, kTraceTag, "connect failed: %d", LastSocketError());
    CloseSocket(g_tcp.socket);
    g_tcp.socket = kInvalidSocket;
    ConsolePrintf("ERROR: Unable to connect to server!\n");
    FreeServerAddressList(found);
    SocketLibraryCleanup();
    return false;
  }
  FreeServerAddressList(found);
  g_tcp.readTimeoutSet = false;
  // Nagle's algorithm holds the poll that follows each frame until the frame
  // is acknowledged; against a server that delays its ACKs that is a stall of
  // tens of milliseconds per command. Off only on request.
  if (g_runOptions.tcpNoDelay && SetNoDelay(g_tcp.socket) != 0)
    TraceRecord(kTraceLevelError, kTraceTag, "TCP_NODELAY refused: %d", LastSocketError());
  return true;
}

int32_t SendSocketCmd(const uint8_t* payload, uint32_t length) {
  if (payload == nullptr) {
    ConsolePrintf("ERROR: SendSocketCmd buffer is empty!\n");
    return -1;
  }
  const size_t frameLength = static_cast<size_t>(length) + kFrameHeaderLength;
  if (frameLength >= kDefaultBufLen) {
    ConsolePrintf("ERROR: Send Length is greater than  DEFAULT_BUFLEN\n");
    return -1;
  }
  // The frame is built in place: the type byte, then the payload but for its
  // last byte, the caller's spare, which falls off the end unread (intended).
  // Only frameLength bytes are sent, so the rest of the buffer is left as it is.
  std::array<uint8_t, kDefaultBufLen> frame;
  WriteLe32(frame, kFrameTypeOffset, kDataMessageType);
  WriteLe32(frame, kFrameLengthOffset, length + kFrameLengthWordSize);
  WriteLe32(frame, kFrameReservedOffset, 0);
  if (length != 0) {
    frame[kFrameHeaderLength] = kH4Command;
    std::memcpy(frame.data() + kFrameHeaderLength + 1, payload, length - 1);
  }
  ConsolePrintf("Send Packet Size = %d \n", static_cast<int>(frameLength));

  // One send; a partial send is not resumed.
  const int64_t sent = SendOnSocket(g_tcp.socket, std::span(frame.data(), frameLength));
  g_tcp.lastResult = static_cast<int32_t>(sent);
  if (sent < 0) {
    ConsolePrintf("ERROR: Send failed with error: %d\n", LastSocketError());
    return 0;
  }
  // The packet as the controller gets it: type byte and command, not the spare byte.
  BtsnoopRecord(BtsnoopDirection::kSent,
                std::span(frame.data() + kFrameHeaderLength, static_cast<size_t>(length)));
  return static_cast<int32_t>(sent);
}

bool ReadSocketEvent(uint8_t* destination, uint32_t capacity, uint32_t* receivedLength,
                     uint32_t timeoutMs) {
  if (destination == nullptr) {
    ConsolePrintf("ERROR: Buffer is invalid!\n");
    return false;
  }
  auto setLength = [receivedLength](uint32_t value) {
    if (receivedLength != nullptr) *receivedLength = value;
  };
  // Nothing is carried over from an earlier call.
  auto& packet = g_tcp.accumulation;
  packet.fill(0);
  size_t filled = 0;
  uint32_t total = 0;
  bool typeKnown = false;
  std::array<uint8_t, kDefaultBufLen> scratch{};

  for (;;) {
    // The type is judged once three bytes are in, even where the length field
    // lies further on (ACL); intended.
    if (filled >= 3 && !typeKnown) {
      uint32_t headerLength = 0;
      uint32_t paramLength = 0;
      if (!GetTcpPacketLength(packet.data(), packet[0], &headerLength, &paramLength, &total)) {
        TraceRecord(kTraceLevelError, kTraceTag, "invalid packet type %u", packet[0]);
        return false;
      }
      typeKnown = true;
      if (total > kMaxPacketLength) {
        ConsolePrintf("Message size is too long, size = %i\n", static_cast<int>(total));
        return false;
      }
    }
    if (typeKnown && filled >= total) {
      if (capacity < total) {
        ReportCopyFailure(destination, capacity, kCopyOutOfRange);
        return false;
      }
      std::memcpy(destination, packet.data(), total);
      setLength(total);
      BtsnoopRecord(BtsnoopDirection::kReceived, std::span(packet.data(), total));
      // A second packet in the same message is moved up and then dropped,
      // since the next call starts empty; intended.
      if (filled > total) std::memmove(packet.data(), packet.data() + total, filled - total);
      return true;
    }

    if (SendSocketRaw(kPollMessage.data(), kPollMessage.size()) < 0) {
      ConsolePrintf("ERROR: Send Poll command failed with error: %d\n", LastSocketError());
    }
    SetReadTimeout(timeoutMs);
    // Capped so a read never runs past the largest acceptable packet.
    const int64_t received = ReadServerMessage(scratch, kMaxPacketLength - filled);
    if (received < 0) return false;
    const int64_t fresh = received - static_cast<int64_t>(kServerPrefixLength);
    setLength(static_cast<uint32_t>(fresh));
    if (fresh == 0) {
      ConsolePrintf("ERROR: unable to read data from device\n");
      return false;
    }
    if (fresh > 0) {
      std::memcpy(packet.data() + filled, scratch.data() + kServerPrefixLength,
                  static_cast<size_t>(fresh));
    }
    // A closed connection reads 0 bytes; the negative count compares as a huge
    // unsigned one and fails the copy below. That is how it shows; intended.
    if (fresh < 0 || static_cast<uint64_t>(fresh) > capacity) {
      ReportCopyFailure(destination, capacity, kCopyOutOfRange);
      return false;
    }
    // Interim copy; the whole packet overwrites it once complete.
    std::memcpy(destination, scratch.data() + kServerPrefixLength, static_cast<size_t>(fresh));
    filled += static_cast<size_t>(fresh);
  }
}

void CloseServerConnection() {
  StdoutWidePrintf(L"Finished sending. Closing socket.\n");
  StdoutFlush();
  g_tcp.lastResult = CloseSocket(g_tcp.socket);
  // The handle is forgotten so a repeated close cannot reach a reused descriptor;
  // it fails and reports instead.
  g_tcp.socket = kInvalidSocket;
  g_tcp.readTimeoutSet = false;
  if (g_tcp.lastResult != 0) {
    StdoutWidePrintf(L"ERROR: Socket Closed failed with error: %d\n", LastSocketError());
    StdoutFlush();
  }
  SocketLibraryCleanup();
}

bool GetTcpPacketLength(const uint8_t* packet, uint8_t type, uint32_t* headerLength,
                        uint32_t* paramLength, uint32_t* totalLength) {
  if (packet == nullptr || headerLength == nullptr || paramLength == nullptr ||
      totalLength == nullptr) {
    return false;
  }
  for (const PacketLayout& layout : kPacketLayouts) {
    if (layout.type != type) continue;
    const std::span<const uint8_t> bytes(packet, layout.lengthOffset + 2);
    *headerLength = layout.headerLength;
    *paramLength =
        layout.wideLength ? ReadLe16(bytes, layout.lengthOffset) : bytes[layout.lengthOffset];
    *totalLength = 1 + *headerLength + *paramLength;
    return true;
  }
  return false;
}

bool ReceiveSocketMessage(uint8_t* destination, uint32_t capacity, uint32_t* receivedLength,
                          uint32_t timeoutMs) {
  if (destination == nullptr) {
    ConsolePrintf("ERROR: Buffer is invalid!\n");
    return false;
  }
  SetReadTimeout(timeoutMs);
  std::array<uint8_t, kDefaultBufLen> scratch{};
  const int64_t received = ReadServerMessage(scratch, scratch.size());
  if (received < 0) return false;
  const int64_t fresh = received - static_cast<int64_t>(kServerPrefixLength);
  if (fresh == 0) {
    if (receivedLength != nullptr) *receivedLength = 0;
    ConsolePrintf("ERROR: unable to read data from device\n");
    return false;
  }
  if (fresh < 0 || static_cast<uint64_t>(fresh) > capacity) {
    ReportCopyFailure(destination, capacity, kCopyOutOfRange);
    return false;
  }
  std::memcpy(destination, scratch.data() + kServerPrefixLength, static_cast<size_t>(fresh));
  if (receivedLength != nullptr) *receivedLength = static_cast<uint32_t>(fresh);
  return true;
}

int32_t SendSocketRaw(const uint8_t* bytes, uint32_t length) {
  if (bytes == nullptr || length > kRawSendLimit) return -1;
  std::array<uint8_t, kRawSendLimit> message{};
  std::memcpy(message.data(), bytes, length);
  const int64_t sent = SendOnSocket(g_tcp.socket, std::span(message.data(), length));
  g_tcp.lastResult = static_cast<int32_t>(sent);
  return static_cast<int32_t>(sent);
}

}  // namespace qrx
