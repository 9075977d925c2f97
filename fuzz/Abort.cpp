// Linked into every target: a failed expectation ends the process, which is what the fuzzer looks for.
#include <gtest/gtest.h>
#include <stdlib.h>

namespace {

class AbortOnFailure final : public testing::EmptyTestEventListener {
  void OnTestPartResult(const testing::TestPartResult& result) override {
    if (result.failed()) abort();
  }
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  testing::UnitTest::GetInstance()->listeners().Append(new AbortOnFailure);
  return 0;
}
