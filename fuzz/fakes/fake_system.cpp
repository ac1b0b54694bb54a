// The remaining platform answers: error text from errno (the fakes set it),
// no registry, no emulation, and output files (captures, reports) that take
// every byte and keep none.
#include <cerrno>
#include <cstring>

#include "platform/console.h"
#include "platform/error_text.h"
#include "platform/output_file.h"
#include "platform/system_query.h"

namespace qrx {

int LastPlatformError() {
  return errno;
}

void PrintSystemErrorText() {
  ConsolePrintf("%s\n", std::strerror(errno));
}

const char* SystemErrorText(int error) {
  return std::strerror(error);
}

bool QueryMachineRegistryValue(const char* /*keyPath*/, const char* /*valueName*/,
                               uint8_t* /*data*/, uint32_t* /*size*/) {
  return false;
}

bool QueryProcessEmulation(bool* emulated) {
  *emulated = false;
  return true;
}

std::string QueryHostName() {
  return "fuzz";
}

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
