#pragma once

// A library context over an image held by the test, as the loaders would
// leave it: position 0, stage 0, a 90-byte version answer carrying the
// signature scheme.

#include <array>
#include <cstdint>
#include <vector>

#include "fwlib/fragment_iterators.h"
#include "fwlib/fwlib_context.h"

namespace qrx::testing {

struct ImageContext {
  explicit ImageContext(std::vector<uint8_t> bytes, uint8_t isOperational = 0,
                        uint8_t isTlvForm = 0, uint8_t scheme = 0)
      : image(std::move(bytes)) {
    version[kSignatureSchemeIndex] = scheme;
    context.magic = kFwLibContextMagic;
    context.versionData = version.data();
    context.versionLength = static_cast<uint8_t>(version.size());
    context.isTlvForm = isTlvForm;
    context.imageBorrowed = 1;
    context.isOperational = isOperational;
    context.imageSize = static_cast<uint32_t>(image.size());
    context.imageData = image.data();
    context.imageBuffer = image.data();
  }
  ImageContext(const ImageContext&) = delete;
  ImageContext& operator=(const ImageContext&) = delete;

  uint32_t Offset() const { return context.imageOffset; }

  std::vector<uint8_t> image;
  std::array<uint8_t, kTlvBootloaderVersionLength> version{};
  FwLibContext context{};
};

}  // namespace qrx::testing
