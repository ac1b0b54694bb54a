// The FWDAT container as the loader meets it: the library's whole search,
// find, read and load for a simulated controller's answer, the patch check on
// what was loaded, and the primitives again with every key length.
//
// Input: one selector byte (bits 0-1 the controller profile, bits 2-5 the key
// length of the direct lookup), then the container's bytes.
#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "fake_world.h"
#include "fwlib/fwdat.h"
#include "fwlib/fwlib_classify.h"
#include "fwlib/fwlib_context.h"
#include "model/controller_config.h"
#include "model/version_answer.h"
#include "platform/console.h"

namespace {

constexpr wchar_t kContainerPath[] = L"C:\\Program Files\\Norix\\Bluetooth\\qrxfw.dat";
constexpr size_t kLargestImageRead = 1 << 20;

std::vector<uint8_t> AnswerFor(qrx::sim::Profile profile) {
  const qrx::sim::ControllerConfig config = qrx::sim::ConfigForProfile(profile);
  return qrx::sim::BuildVersionAnswer(config, config.startInBootloader, config.patchNumber);
}

void LoadThroughLibrary(std::vector<uint8_t> answer) {
  // The loader hands the library a fixed-size copy of either form.
  answer.resize(answer.size() <= qrx::kLegacyVersionLength ? qrx::kLegacyVersionLength
                                                           : qrx::kTlvBootloaderVersionLength);
  qrx::FwLibContext* context = nullptr;
  qrx::FwLibInitialize(answer.data(), static_cast<uint8_t>(answer.size()), 1, &context);
  if (context == nullptr) return;
  uint8_t current = 0;
  uint8_t otherLoaded = 0;
  qrx::FwLibCheckPatchLevel(context, &current, &otherLoaded);
  qrx::FwLibRelease(context);
}

void LookUpDirectly(const std::vector<uint8_t>& answer, uint8_t kindByte, uint32_t keyLength) {
  std::array<uint8_t, qrx::kFwdatMatchKeySize + 3> key{};
  const std::vector<uint8_t> imageKey = qrx::sim::ImageKeyOf(answer);
  for (size_t i = 0; i < key.size() && i < imageKey.size(); ++i) key[i] = imageKey[i];
  qrx::FileHandle handle = qrx::kNoFileHandle;
  qrx::FwdatEntry entry{};
  entry[qrx::kFwdatEntryKindOffset] = kindByte;
  const qrx::FwdatError found =
      qrx::FwdatFindEntry(kContainerPath, &handle, &entry, key.data(), keyLength);
  if (found == qrx::kFwdatOk) {
    const uint32_t size = qrx::FwdatEntryImageSize(entry);
    if (size > 0 && size <= kLargestImageRead) {
      std::vector<uint8_t> image(size);
      uint32_t bufferSize = size;
      qrx::FwdatReadImage(kContainerPath, &handle, &entry, image.data(), &bufferSize);
    }
  }
  if (qrx::FileHandleIsOpen(handle)) qrx::FwdatClose(handle);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const qrx::ConsoleCapture console;  // the console text is kept in memory, unread
  if (size < 1) return 0;
  qrx::fuzz::ResetFakeWorld();
  const uint8_t selector = data[0];
  qrx::fuzz::AddFakeFile(".dat", std::vector<uint8_t>(data + 1, data + size));
  const auto profile = qrx::sim::kProfiles[selector & 0x03].profile;
  const std::vector<uint8_t> answer = AnswerFor(profile);
  LoadThroughLibrary(answer);
  const uint8_t kind = (selector >> 2) & 0x01;  // signed or BSEQ entries
  LookUpDirectly(answer, kind, (selector >> 3) & 0x0F);
  return 0;
}
