// Output files (captures, reports) that take every byte and keep none.
#include "platform/output_file.h"

namespace qrx {

int OutputFileCreate(const char* /*hostPath*/, OutputFileHandle* handle) {
  *handle = 1;
  return 0;
}

int OutputFileWrite(OutputFileHandle /*handle*/, std::span<const uint8_t> /*bytes*/) {
  return 0;
}

int OutputFileClose(OutputFileHandle /*handle*/) {
  return 0;
}

int OutputFileTruncate(OutputFileHandle /*handle*/, uint64_t /*size*/) {
  return 0;
}

int OutputFileReplace(const char* /*hostPath*/, std::span<const uint8_t> /*bytes*/) {
  return 0;
}

}  // namespace qrx
