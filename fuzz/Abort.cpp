// Linked into every target: a failed expectation ends the process, which is what the fuzzer looks for.
#include <gtest/gtest.h>

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  GTEST_FLAG_SET(throw_on_failure, true);  // and nothing catches it
  return 0;
}
