#include "tests/unit/QueueModel.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  QueueModel(Choices(data, size)).Run();
  return 0;
}
