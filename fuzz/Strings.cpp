#include "common/RefString.h"
#include "common/SimpleString.h"
#include "tests/unit/StringModel.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  StringModel<Velk::SimpleString>(Choices(data, size)).Run();
  StringModel<Velk::RefString>(Choices(data, size)).Run();
  return 0;
}
