// Linked into every target: makes a failed expectation abort, so that the fuzzer notices it.
#include <gtest/gtest.h>

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  GTEST_FLAG_SET(throw_on_failure, true);  // and nothing catches it
  return 0;
}
