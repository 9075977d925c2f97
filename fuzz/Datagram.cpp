#include "tests/unit/ServerModel.h"

time_t g_now;

extern "C" time_t time(time_t*) {
  return g_now;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  ServerModel(Choices(data, size)).Run();
  return 0;
}
