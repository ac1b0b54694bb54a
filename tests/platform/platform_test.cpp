#include <gtest/gtest.h>

#include <optional>
#include <utility>

#include "platform/clock.h"
#include "platform/host_path.h"
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

TEST(Clock, CounterAdvancesAcrossASleepAtTheStatedFrequency) {
  const int64_t before = PerformanceCounter();
  SleepMilliseconds(20);
  const double seconds = static_cast<double>(PerformanceCounter() - before) /
                         static_cast<double>(PerformanceFrequency());
  EXPECT_GE(seconds, 0.019);
  EXPECT_LT(seconds, 5.0);
}

}  // namespace
}  // namespace qrx
