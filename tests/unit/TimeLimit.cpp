// Ends the program if a test hangs, and names the test.

#include <signal.h>

#include "tests/unit/Test.h"

namespace {

constexpr unsigned kSeconds = 300;  // far more than a test needs, even under an emulator
char s_message[200];

void OnAlarm(int) {
  [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, s_message, strlen(s_message));
  _exit(1);
}

struct TimeLimit final : testing::EmptyTestEventListener {
  void OnTestStart(const testing::TestInfo& test) override {
    snprintf(s_message, sizeof s_message, "%s.%s hangs\n", test.test_suite_name(), test.name());
    alarm(kSeconds);
  }
};

const bool s_isSet = [] {
  testing::UnitTest::GetInstance()->listeners().Append(new TimeLimit);
#ifndef __SANITIZE_THREAD__  // it delays handlers, but not a signal's default action
  signal(SIGALRM, OnAlarm);
#endif
  return true;
}();

}  // namespace
