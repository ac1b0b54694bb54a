#include "sim_options.h"

#include <gtest/gtest.h>

namespace qrx::sim {
namespace {

bool Parse(std::vector<const char*> args, SimOptions* options, std::string* error) {
  args.insert(args.begin(), "qrxvps");
  return ParseSimOptions(static_cast<int>(args.size()), args.data(), options, error);
}

TEST(SimOptions, ProfileFirstThenFieldsInOrder) {
  SimOptions o;
  std::string error;
  ASSERT_TRUE(Parse({"--set", "patch=3", "--profile=legacy-op", "--set=hw-variant=0x08", "--set",
                     "key-dword=0xFFFFFFFF", "--secure-boot", "off", "--pty", "--once", "--fault",
                     "noise@2", "--fault=close", "--log", "x.log"},
                    &o, &error))
      << error;
  EXPECT_EQ(o.front, Front::kPty);
  EXPECT_EQ(o.controller.form, AnswerForm::kLegacy);
  EXPECT_FALSE(o.controller.startInBootloader);
  EXPECT_EQ(o.controller.patchNumber, 3);  // the profile does not undo an earlier --set
  EXPECT_EQ(o.controller.hwVariant, 0x08);
  EXPECT_EQ(o.controller.keyDword, 0xFFFFFFFFu);
  EXPECT_FALSE(o.controller.secureBoot);
  EXPECT_TRUE(o.once);
  ASSERT_EQ(o.faults.size(), 2u);
  EXPECT_EQ(o.faults[0].occurrence, 2u);
  EXPECT_EQ(o.logPath, "x.log");

  SimOptions tcp;
  ASSERT_TRUE(Parse({"--port", "0", "--bind", "127.0.0.2"}, &tcp, &error));
  EXPECT_EQ(tcp.front, Front::kTcp);
  EXPECT_EQ(tcp.port, 0);
  EXPECT_EQ(tcp.bindAddress, "127.0.0.2");
  EXPECT_EQ(tcp.controller.form, AnswerForm::kTlv);
}

TEST(SimOptions, BadCommandLinesSayWhy) {
  const std::vector<std::vector<const char*>> cases = {
      {"--port", "65536"},
      {"--port"},
      {"--profile", "tlv"},
      {"--set", "patch"},
      {"--set", "patch=256"},
      {"--set", "colour=1"},
      {"--secure-boot", "maybe"},
      {"--fault", "quiet"},
      {"--log="},
      {"--loud"},
  };
  for (const auto& args : cases) {
    SimOptions o;
    std::string error;
    EXPECT_FALSE(Parse(args, &o, &error)) << args[0];
    EXPECT_FALSE(error.empty()) << args[0];
  }
}

}  // namespace
}  // namespace qrx::sim
