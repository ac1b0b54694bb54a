#include <cstdlib>
#include <string_view>

#include "platform/host_path.h"

namespace qrx {

namespace {

constexpr std::wstring_view kObjectManagerPrefix = L"\\??\\";
constexpr char kDefaultDrive = 'C';
constexpr const char* kDriveRootDefault = "/";
constexpr std::wstring_view kHostRoot = L"/";
constexpr std::wstring_view kHostRelative = L"./";

bool IsAsciiLetter(wchar_t c) {
  return (c >= L'a' && c <= L'z') || (c >= L'A' && c <= L'Z');
}

std::string DriveRoot(char letter) {
  const std::string name = std::string("QRXBPL_DRIVE_") + letter;
  const char* value = std::getenv(name.c_str());
  return (value != nullptr && *value != '\0') ? value : kDriveRootDefault;
}

void AppendUtf8(std::string& out, wchar_t c) {
  auto code = static_cast<uint32_t>(c);
  if (code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) code = '?';
  if (code < 0x80) {
    out += static_cast<char>(code);
  } else if (code < 0x800) {
    out += static_cast<char>(0xC0 | (code >> 6));
    out += static_cast<char>(0x80 | (code & 0x3F));
  } else if (code < 0x10000) {
    out += static_cast<char>(0xE0 | (code >> 12));
    out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (code & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | (code >> 18));
    out += static_cast<char>(0x80 | ((code >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (code & 0x3F));
  }
}

}  // namespace

std::string HostPathFromWindows(const wchar_t* path) {
  std::wstring_view rest(path);
  if (rest.starts_with(kHostRoot) || rest.starts_with(kHostRelative)) {
    std::string host;
    for (wchar_t c : rest) host += static_cast<char>(c);
    return host;
  }
  if (rest.starts_with(kObjectManagerPrefix)) rest.remove_prefix(kObjectManagerPrefix.size());

  std::string joined;
  if (rest.size() >= 2 && IsAsciiLetter(rest[0]) && rest[1] == L':') {
    const char letter = static_cast<char>(rest[0] & ~0x20);  // upper case
    joined = DriveRoot(letter) + "/";
    rest.remove_prefix(2);
  } else if (rest.starts_with(L'\\')) {
    joined = DriveRoot(kDefaultDrive);
  }
  for (wchar_t c : rest) AppendUtf8(joined, c == L'\\' ? L'/' : c);

  std::string host;
  host.reserve(joined.size());
  for (char c : joined) {
    if (c == '/' && !host.empty() && host.back() == '/') continue;
    host += c;
  }
  return host;
}

std::wstring WideFromHostPath(const char* hostPath) {
  const std::string_view host(hostPath);
  std::wstring wide;
  if (!host.starts_with('/') && !host.starts_with("./")) wide = kHostRelative;
  for (char c : host) wide += static_cast<wchar_t>(static_cast<unsigned char>(c));
  return wide;
}

}  // namespace qrx
