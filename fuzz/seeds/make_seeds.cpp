// Writes the fuzz targets' seed corpora: firmware built by the image library,
// and whole runs of the loader against the simulated controller over the fake
// serial line and server socket, recorded at the far end.
//
//   fuzz_make_seeds OUT_DIR      (OUT_DIR/<target>/<name>)
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

#include "fake_world.h"
#include "image/fw_image.h"
#include "model/controller.h"
#include "model/controller_config.h"
#include "model/version_answer.h"
#include "run_input.h"
#include "vps_session.h"

namespace {

namespace fs = std::filesystem;
using Bytes = std::vector<uint8_t>;
using qrx::sim::Profile;

fs::path g_out;

void Write(const std::string& target, const std::string& name, const Bytes& bytes) {
  fs::create_directories(g_out / target);
  std::ofstream(g_out / target / name, std::ios::binary)
      .write(reinterpret_cast<const char*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
}

Bytes Prefixed(uint8_t first, const Bytes& rest) {
  Bytes out{first};
  out.insert(out.end(), rest.begin(), rest.end());
  return out;
}

Bytes KeyOf(Profile profile) {
  const qrx::sim::ControllerConfig config = qrx::sim::ConfigForProfile(profile);
  return qrx::sim::ImageKeyOf(qrx::sim::BuildVersionAnswer(config, true, config.patchNumber));
}

Bytes Container(Profile profile, uint8_t kind, const Bytes& image) {
  qrx::fwimage::FwdatEntrySpec entry;
  entry.kindByte = kind;
  entry.matchKey = qrx::fwimage::MatchKey(KeyOf(profile));
  entry.image = image;
  return qrx::fwimage::BuildFwdat(std::span(&entry, 1));
}

// Small images, so that the seeds are quick to run.
struct Images {
  qrx::fwimage::SignedImageSpec recipe{.bodyBytes = 48};
  Bytes sfi = qrx::fwimage::BuildSfiImage(recipe);
  Bytes twoBlock = qrx::fwimage::BuildTwoBlockImage(recipe, true);
  Bytes twoBlockBare = qrx::fwimage::BuildTwoBlockImage(recipe, false);
  Bytes bseq = qrx::fwimage::BuildBseqImage(qrx::fwimage::SampleBseqCommands(4, 1), true);
};

// One run of the loader against a fresh simulated controller; the seed holds
// the arguments, the firmware and what the controller (or server) sent.
qrx::fuzz::RunInput RecordRun(const std::vector<std::string>& arguments, Profile profile,
                              const Bytes& firmware, bool overTcp) {
  qrx::fuzz::ResetFakeWorld();
  qrx::fuzz::AddFakeFile("", firmware);
  qrx::sim::Controller controller(qrx::sim::ConfigForProfile(profile));
  qrx::sim::VpsSession session(controller);
  bool closed = false;
  if (overTcp) {
    controller.PowerOn();
    qrx::fuzz::ServerPeer().onWrite = [&](std::span<const uint8_t> bytes) {
      std::string error;
      if (closed || !session.OnClientBytes(bytes, &error)) return;
      while (std::optional<qrx::sim::VpsSession::Message> message = session.NextMessage()) {
        if (message->close) {
          closed = true;
          return;
        }
        qrx::fuzz::ServerPeer().incoming.push_back(message->bytes);
      }
    };
  } else {
    qrx::fuzz::SerialPeer().onWrite = [&](std::span<const uint8_t> bytes) {
      if (closed) return;
      controller.Receive(bytes);
      while (std::optional<qrx::sim::OutPacket> packet = controller.PopOutput()) {
        if (packet->delivery & qrx::sim::kDeliverClose) {
          closed = true;
          return;
        }
        qrx::fuzz::SerialPeer().incoming.push_back(packet->bytes);
      }
    };
  }
  const bool ok = qrx::fuzz::RunProgram(arguments);
  std::fprintf(stderr, "fuzz_make_seeds: run %s\n", ok ? "completed" : "failed");
  return {
      .arguments = arguments,
      .firmware = firmware,
      .farEnd = overTcp ? qrx::fuzz::ServerPeer().delivered : qrx::fuzz::SerialPeer().delivered};
}

struct Scenario {
  const char* name;
  std::vector<std::string> arguments;
  Profile profile;
  bool overTcp;
  bool bseq;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: fuzz_make_seeds OUT_DIR\n");
    return 2;
  }
  g_out = argv[1];
  const Images images;
  const Bytes tlvBoot = Container(Profile::kTlvBoot, 1, images.twoBlock);
  const Bytes legacyBoot = Container(Profile::kLegacyBoot, 1, images.sfi);
  const Bytes tlvOp = Container(Profile::kTlvOp, 0, images.bseq);

  // Selector byte: scheme in bits 0-1; the second byte is the small room.
  Write("fragments", "sfi", Prefixed(0, Prefixed(0, images.sfi)));
  Write("fragments", "two-block-scheme1", Prefixed(1, Prefixed(0, images.twoBlock)));
  Write("fragments", "two-block-bare", Prefixed(0, Prefixed(0, images.twoBlockBare)));
  Write("fragments", "bseq-small-room", Prefixed(4, Prefixed(40, images.bseq)));

  // Selector byte: profile in bits 0-1 (legacy-boot, legacy-op, tlv-boot,
  // tlv-op), kind in bit 2, key length in bits 3-6.
  Write("fwdat", "tlv-boot", Prefixed(2 | (1 << 2) | (12 << 3), tlvBoot));
  Write("fwdat", "legacy-boot", Prefixed(0 | (1 << 2) | (9 << 3), legacyBoot));
  Write("fwdat", "tlv-op", Prefixed(3 | (0 << 2) | (12 << 3), tlvOp));

  Write("firmware_report", "tlv-boot.dat", tlvBoot);
  Write("firmware_report", "two-block.sfi", images.twoBlock);
  Write("firmware_report", "bseq", images.bseq);

  // clang-format off
  const std::vector<Scenario> scenarios = {
      {"uart-tlv-boot", {"-i", "2", "-p", "COM1"}, Profile::kTlvBoot, false, false},
      {"uart-rate", {"-i", "2", "-h", "2", "-p", "COM1", "-r", "3000000"}, Profile::kTlvBoot, false, false},
      {"uart-legacy-nocc", {"-i", "2", "-p", "COM1", "-nocc"}, Profile::kLegacyBoot, false, false},
      {"uart-legacy-op-bd", {"-i", "2", "-p", "COM1", "-bd", "-v"}, Profile::kLegacyOp, false, true},
      {"tcp-tlv-boot", {"-i", "3", "-a", "127.0.0.1"}, Profile::kTlvBoot, true, false},
      {"tcp-legacy-boot", {"-i", "3", "-a", "127.0.0.1", "-f", "1"}, Profile::kLegacyBoot, true, false},
  };
  // clang-format on
  for (const Scenario& scenario : scenarios) {
    const Bytes firmware = scenario.bseq
                               ? images.bseq
                               : (scenario.profile == Profile::kLegacyBoot ? legacyBoot : tlvBoot);
    const qrx::fuzz::RunInput run =
        RecordRun(scenario.arguments, scenario.profile, firmware, scenario.overTcp);
    Write("run", scenario.name, qrx::fuzz::WriteRunInput(run));
  }

  // A controller that answers the version read with a vendor event and then
  // an ACL packet whose length word is whatever stale bytes lie behind its
  // short header.
  Bytes hostile = {0x04, 0xFF, 0x05, 0x05, 0x01, 0x00, 0x00, 0x00, 0x02, 0x00, 0x00};
  for (int i = 0; i < 263; ++i) hostile.push_back(static_cast<uint8_t>(i));
  Write("run", "uart-hostile-acl",
        qrx::fuzz::WriteRunInput({.arguments = {"-i", "2", "-p", "COM1"}, .farEnd = hostile}));
  return 0;
}
