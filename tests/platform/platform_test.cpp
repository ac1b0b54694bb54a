#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <string>
#include <utility>

#include "platform/host_path.h"
#include "platform/sha256.h"
#include "support/scoped_env.h"

namespace qrx {
namespace {

TEST(HostPath, MapsDrivesAndSeparators) {
  ScopedEnv driveC("QRXBPL_DRIVE_C", "/srv/qrx");
  ScopedEnv driveD("QRXBPL_DRIVE_D", std::nullopt);
  ScopedEnv driveE("QRXBPL_DRIVE_E", "/media/e/");
  const std::pair<const wchar_t*, const char*> cases[] = {
      {L"C:\\\\Program Files\\qrxfw.dat", "/srv/qrx/Program Files/qrxfw.dat"},
      {L"\\??\\C:\\Norix\\Fw.sfi", "/srv/qrx/Norix/Fw.sfi"},
      {L"\\Program Files (x86)\\Norix\\x64", "/srv/qrx/Program Files (x86)/Norix/x64"},
      {L"c:fw.bseq", "/srv/qrx/fw.bseq"},
      {L"D:\\a\\b", "/a/b"},
      {L"E:\\a", "/media/e/a"},
      {L".\\Fw.sfi", "./Fw.sfi"},
      {L"C:\\\x00e9t\x00e9", "/srv/qrx/\xc3\xa9t\xc3\xa9"},
  };
  for (const auto& [windows, host] : cases) EXPECT_EQ(HostPathFromWindows(windows), host);
}

// A path the operator names comes back byte for byte, whatever it holds.
TEST(HostPath, NamedHostPathsPassThroughUnchanged) {
  ScopedEnv driveC("QRXBPL_DRIVE_C", "/srv/qrx");
  const std::pair<const char*, const char*> cases[] = {
      {"/tmp/a\\b//fw.dat", "/tmp/a\\b//fw.dat"},
      {"fw/\xc3\xa9.sfi", "./fw/\xc3\xa9.sfi"},
      {"C:fw.sfi", "./C:fw.sfi"},
      {"./x.bseq", "./x.bseq"},
  };
  for (const auto& [named, host] : cases) {
    EXPECT_EQ(HostPathFromWindows(WideFromHostPath(named).c_str()), host);
  }
}

TEST(Sha256, KnownDigests) {
  const std::pair<std::string, const char*> cases[] = {
      {"", "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
      {"abc", "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
      {"abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq",
       "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1"},
      {std::string(1000000, 'a'),
       "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0"},
      // 55, 56 and 64 bytes: the padding's edges.
      {std::string(55, 'a'), "9f4390f8d30c2dd92ec9f095b65e2b9ae9b0a925a5258e241c9f1e910f734318"},
      {std::string(56, 'a'), "b35439a4ac6f0948b6d6f9e3c6af0f5f590ce20f1bde7090ef7970686ec6738a"},
      {std::string(64, 'a'), "ffe054fe7ae0cb6dc65c3af9b61d5209f439851db43d0ba5997337df154668eb"},
  };
  for (const auto& [message, digest] : cases) {
    Sha256 whole;
    whole.Update(std::span(reinterpret_cast<const uint8_t*>(message.data()), message.size()));
    EXPECT_EQ(HexText(whole.Finish()), digest) << message.size();
    // Fed in uneven pieces, the same digest.
    Sha256 pieces;
    for (size_t at = 0; at < message.size(); at += 37) {
      const size_t take = std::min<size_t>(37, message.size() - at);
      pieces.Update(std::span(reinterpret_cast<const uint8_t*>(message.data()) + at, take));
    }
    EXPECT_EQ(HexText(pieces.Finish()), digest) << message.size();
  }
}

}  // namespace
}  // namespace qrx
