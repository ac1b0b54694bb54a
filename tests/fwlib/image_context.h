#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "fwlib/fragment_iterators.h"

namespace qrx::testing {

// A library context over an image held by the test, as a loader leaves it:
// position 0, stage 0, a long version answer carrying the signature scheme.
struct ImageContext {
  explicit ImageContext(std::vector<uint8_t> bytes, uint8_t isOperational = 0,
                        uint8_t isTlvForm = 0, uint8_t scheme = 0)
      : image(std::move(bytes)) {
    version[kSignatureSchemeIndex] = scheme;
    context = {.magic = kFwLibContextMagic,
               .versionData = version.data(),
               .versionLength = static_cast<uint8_t>(version.size()),
               .isTlvForm = isTlvForm,
               .imageBorrowed = 1,
               .isOperational = isOperational,
               .imageSize = static_cast<uint32_t>(image.size()),
               .signatureStage = 0,
               .imageOffset = 0,
               .imageData = image.data(),
               .imageBuffer = image.data()};
  }
  ImageContext(const ImageContext&) = delete;
  uint32_t Offset() const { return context.imageOffset; }

  std::vector<uint8_t> image;
  std::array<uint8_t, kTlvBootloaderVersionLength> version{};
  FwLibContext context{};
};

}  // namespace qrx::testing
