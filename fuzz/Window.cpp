#include "tests/unit/WindowModel.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  WindowModel(Choices(data, size)).Run();
  return 0;
}
