#include "common/Console.h"

#include <gtest/gtest.h>
#include <limits.h>
#include <signal.h>

#include <string>
#include <thread>

#include "common/TimeStamp.h"
#include "tests/unit/StdoutPipe.h"

namespace {

void WriteLine(const std::string& text) {
  const iovec pieces[] = {{const_cast<char*>(text.data()), text.size() / 2},
                          {const_cast<char*>(text.data()) + text.size() / 2, text.size() - text.size() / 2}};
  Velk::Console::WriteLine(pieces, 2);
}

// Reads until the expected bytes are there; the deadline is the test runner's.
std::string ReadAtLeast(StdoutPipe& out, size_t bytes) {
  std::string all;
  while (all.size() < bytes) all += out.Read();
  return all;
}

TEST(Console, AThreadThatNeverWaitsKeepsItsLinesForLater) {
  StdoutPipe out;
  const size_t filled = StdoutPipe::Fill();
  std::string expected;
  std::thread busy([&] {
    Velk::Console::NeverWaitOnThisThread();
    for (int i = 0; i < 100; ++i) {
      const std::string line = "line " + std::to_string(i) + "\n";
      WriteLine(line);  // returns although nobody reads
      expected += line;
    }
    // More than is kept is lost as whole lines, without harm to those kept before.
    WriteLine(std::string(Velk::Console::kKeptBytes, 'x'));
  });
  busy.join();
  EXPECT_EQ(out.Read(), std::string(filled, '#'));
  WriteLine("next\n");
  EXPECT_EQ(out.Read(), expected + "next\n");
}

TEST(Console, KeptLinesGoOutWholeSoThatAnotherProcessFitsBetween) {
  StdoutPipe out;
  StdoutPipe::Fill();
  std::string shown;
  std::thread busy([&] {
    Velk::Console::NeverWaitOnThisThread();
    for (int i = 0; i < 100; ++i)
      WriteLine("a line whose length is no divisor of a page, " + std::to_string(i) + "\n");
    shown = out.Read(PIPE_BUF);  // room for some of them
    WriteLine("next\n");
    shown = out.Read();
    WriteLine("last\n");
  });
  busy.join();
  ASSERT_NE(shown.find("page"), std::string::npos);
  EXPECT_EQ(shown.find("next"), std::string::npos);
  EXPECT_EQ(shown.back(), '\n') << shown.substr(shown.size() - 80);
}

TEST(Console, AThreadThatWaitsLosesNothingAndHoldsNobodyUp) {
  StdoutPipe out;
  const size_t filled = StdoutPipe::Fill();
  std::thread waiting([] { WriteLine("waited\n"); });
  std::thread busy([] {
    Velk::Console::NeverWaitOnThisThread();
    WriteLine("kept\n");
  });
  busy.join();
  const std::string all = ReadAtLeast(out, filled + 12).substr(filled);
  waiting.join();
  EXPECT_TRUE(all == "waited\nkept\n" || all == "kept\nwaited\n") << all;
}

TEST(Console, SurvivesANonBlockingDescriptorAndAReaderThatLeft) {
  signal(SIGPIPE, SIG_IGN);
  {
    StdoutPipe out;
    fcntl(STDOUT_FILENO, F_SETFL, fcntl(STDOUT_FILENO, F_GETFL) | O_NONBLOCK);
    const std::string big(200000, 'b');  // larger than any pipe: short writes
    std::thread waiting([&] { WriteLine(big); });
    EXPECT_EQ(ReadAtLeast(out, big.size()), big);
    waiting.join();
  }
  const int saved = dup(STDOUT_FILENO);
  close(STDOUT_FILENO);
  WriteLine("nowhere\n");
  dup2(saved, STDOUT_FILENO);
  close(saved);
}

TEST(TimeStamp, FollowsTheZoneFromTheNextSecondOn) {
  struct {
    const char* zone;
    long offset;
  } const rows[] = {{"UTC0", 0}, {"XYZ-5:30", 19800}, {"ABC+3", -10800}};
  for (const auto& row : rows) {
    setenv("TZ", row.zone, 1);
    std::string stamp, expected;
    bool same = false;
    for (const time_t begin = time(nullptr); !same && time(nullptr) < begin + 5;) {
      const time_t now = time(nullptr);
      char text[Velk::TimeStamp::kLength];
      EXPECT_EQ(Velk::TimeStamp::Put(text), text + sizeof text);
      stamp.assign(text, sizeof text);
      const auto second = static_cast<long>((now + row.offset) % 86400);
      snprintf(text, sizeof text, "[%02ld:%02ld:%02ld.", second / 3600, second / 60 % 60, second % 60);
      expected = text;
      same = stamp.compare(0, expected.size(), expected) == 0 && stamp[13] == ']';
    }
    EXPECT_TRUE(same) << stamp << " is not " << expected << " in " << row.zone;
  }
  unsetenv("TZ");
}

}  // namespace
