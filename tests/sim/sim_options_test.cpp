#include "sim_options.h"

#include <gtest/gtest.h>

namespace qrx::sim {
namespace {

bool Parse(std::vector<const char*> args, SimOptions* options, std::string* error) {
  args.insert(args.begin(), "qrxvps");
  return ParseSimOptions(static_cast<int>(args.size()), args.data(), options, error);
}

TEST(SimOptions, BadCommandLinesSayWhy) {
  SimOptions o;
  std::string error;
  for (const auto& args : std::vector<std::vector<const char*>>{{"--port", "65536"},
                                                                {"--port"},
                                                                {"--profile", "tlv"},
                                                                {"--set", "patch=256"},
                                                                {"--set", "colour=1"},
                                                                {"--secure-boot", "maybe"},
                                                                {"--fault", "quiet"},
                                                                {"--fault", "noise@0"},
                                                                {"--fault", "split/12345"},
                                                                {"--log="},
                                                                {"--loud"}}) {
    error.clear();
    EXPECT_FALSE(Parse(args, &o, &error)) << args[0];
    EXPECT_FALSE(error.empty()) << args[0];
  }
}

}  // namespace
}  // namespace qrx::sim
