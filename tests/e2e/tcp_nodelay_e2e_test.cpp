// A server that delays its acknowledgements, as most do: with Nagle's
// algorithm on, every poll waits for the ACK of the frame before it, about
// 40 ms a fragment. --tcp-nodelay is the way out; this run proves it does,
// with the longest read time-out a station may set.

#include <gtest/gtest.h>

#include <chrono>

#include "e2e/e2e_bench.h"

namespace qrx::test {
namespace {

// A full-size image, about 4200 fragments: the stall takes them past 160 s,
// the fix a few seconds. The bound leaves room for a loaded machine and a
// sanitizer build.
constexpr fwimage::SignedImageSpec kImage{.bodyBytes = 1u << 20, .seed = 9, .patchNumber = 0};
constexpr auto kBound = std::chrono::seconds(40);
constexpr size_t kFrameOverhead = 13;  // frame header and the H4 byte

TEST(TcpNoDelayEndToEnd, DownloadAgainstADelayedAckServerIsNotStalled) {
  E2eBench bench;
  const auto image = fwimage::BuildTwoBlockImage(kImage, false);
  InstallContainer(bench, kTlvBoot, image);
  const std::string port = bench.StartTcp({"--profile", "tlv-boot", "--delayed-ack"});

  const auto start = std::chrono::steady_clock::now();
  const ProcessResult run =
      bench.RunLoader({"-i", "3", "-a", "127.0.0.1", "-p", port, "--tcp-nodelay", "--tcp-timeout",
                       "86400"});
  const auto took = std::chrono::steady_clock::now() - start;

  // The console is the design's, fragment for fragment: one frame line each;
  // every fragment reaches the controller, in order.
  const std::vector<std::string> sends = ExpectedSecureSends(image, false);
  ASSERT_GT(sends.size(), 4000u);
  std::string frames;
  for (const std::string& send : sends) {
    const size_t commandBytes = (send.size() + 1) / 3;  // "XX " per byte, no last blank
    frames += "Send Packet Size = " + std::to_string(commandBytes + kFrameOverhead) + " \n";
  }
  EXPECT_EQ(run.exitStatus, 0);
  EXPECT_EQ(run.out, "Finished sending. Closing socket.\n");
  EXPECT_EQ(MaskTimes(run.err),
            kPicked + kTcpVersion + "[OK]\nInitialization complete.\nDownloading FWDAT file...\n" +
                frames +
                "CMD: Norix HCI Reset                     Send Packet Size = 24 \n[OK]\n"
                "Download complete.\n" +
                kTcpTimingTable);
  std::vector<std::string> wire = {"05 FC 01 FF"};
  wire.insert(wire.end(), sends.begin(), sends.end());
  wire.push_back("01 FC 08 00 00 00 01 00 80 00 00");
  EXPECT_EQ(bench.CommandLog(), wire);
  EXPECT_LT(took, kBound) << sends.size() << " fragments took "
                          << std::chrono::duration_cast<std::chrono::milliseconds>(took).count()
                          << " ms";
}

}  // namespace
}  // namespace qrx::test
