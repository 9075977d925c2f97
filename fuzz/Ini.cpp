#include "tests/unit/IniModel.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const TempDirectory directory;
  CheckSavedAndLoaded(directory, std::string(data, data + size));
  return 0;
}
