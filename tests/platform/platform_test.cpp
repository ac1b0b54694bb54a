#include <gtest/gtest.h>

#include <cstdlib>

#include "platform/clock.h"
#include "platform/host_path.h"

namespace qrx {
namespace {

TEST(HostPath, MapsDrivesAndSeparators) {
  ::setenv("QRXBPL_DRIVE_C", "/srv/qrx", 1);
  ::setenv("QRXBPL_DRIVE_E", "/media/e/", 1);
  ::unsetenv("QRXBPL_DRIVE_D");
  struct Case {
    const wchar_t* windows;
    const char* host;
  };
  const Case cases[] = {
      {L"C:\\\\Program Files\\Norix\\Bluetooth\\qrxfw.dat",
       "/srv/qrx/Program Files/Norix/Bluetooth/qrxfw.dat"},
      {L"\\??\\C:\\Program Files\\Norix\\Bluetooth\\Fw.sfi",
       "/srv/qrx/Program Files/Norix/Bluetooth/Fw.sfi"},
      {L"\\Program Files (x86)\\Norix\\x64", "/srv/qrx/Program Files (x86)/Norix/x64"},
      {L"c:fw.bseq", "/srv/qrx/fw.bseq"},
      {L"D:\\a\\b", "/a/b"},
      {L"E:\\a", "/media/e/a"},
      {L".\\Fw.sfi", "./Fw.sfi"},
      {L"C:\\\x00e9t\x00e9", "/srv/qrx/\xc3\xa9t\xc3\xa9"},
  };
  for (const auto& c : cases) EXPECT_EQ(HostPathFromWindows(c.windows), c.host);
  ::unsetenv("QRXBPL_DRIVE_C");
  ::unsetenv("QRXBPL_DRIVE_E");
  EXPECT_EQ(HostPathFromWindows(L"C:\\\\Windows\\x"), "/Windows/x");
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
