#include "tests/unit/ServerModel.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  ServerModel(Choices(data, size)).Run();
  return 0;
}
