#include "common/Console.h"

#include <signal.h>

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

// On a thread that never waits, to its end.
template <typename Action>
void RunNeverWaiting(Action action) {
  std::thread([&action] {
    Velk::Console::NeverWaitOnThisThread();
    action();
  }).join();
}

TEST(Console, AThreadThatNeverWaitsKeepsItsLinesForLater) {
  StdoutPipe out;
  const size_t filled = StdoutPipe::Fill();
  std::string expected;
  RunNeverWaiting([&] {
    for (int i = 0; i < 100; ++i) {
      expected += "line " + std::to_string(100 + i) + "\n";
      WriteLine(expected.substr(expected.size() - 9));  // returns although nobody reads
    }
    // More than is kept is lost as whole lines, without harm to those kept before.
    WriteLine(std::string(Velk::Console::kKeptBytes, 'x'));
  });
  EXPECT_EQ(out.Read(), std::string(filled, '#'));
  WriteLine("next\n");
  EXPECT_EQ(out.Read(), expected + "next\n");
}

TEST(Console, KeptLinesGoOutWholeSoThatAnotherProcessFitsBetween) {
  StdoutPipe out;
  StdoutPipe::Fill();
  std::string shown;
  RunNeverWaiting([&] {
    for (int i = 0; i < 100; ++i)
      WriteLine("a line whose length is no divisor of a page, " + std::to_string(i) + "\n");
    shown = out.Read(PIPE_BUF);  // room for some of them
    WriteLine("next\n");
    shown = out.Read();
    WriteLine("last\n");
  });
  ASSERT_NE(shown.find("page"), std::string::npos);
  EXPECT_EQ(shown.find("next"), std::string::npos);
  EXPECT_EQ(shown.back(), '\n') << shown.substr(shown.size() - 80);
}

TEST(Console, AThreadThatWaitsLosesNothingAndHoldsNobodyUp) {
  StdoutPipe out;
  const size_t filled = StdoutPipe::Fill();
  std::thread waiting([] { WriteLine("waited\n"); });
  RunNeverWaiting([] { WriteLine("kept\n"); });
  const std::string all = ReadAtLeast(out, filled + 12).substr(filled);
  waiting.join();
  EXPECT_TRUE(all == "waited\nkept\n" || all == "kept\nwaited\n") << all;
}

TEST(Console, AFloodOfKeptLinesHoldsBackNoThreadThatWaits) {
  StdoutPipe out;
  StdoutPipe::Fill();
  std::atomic<bool> isWritten{false}, isOver{false};
  std::thread waiting([&] {
    WriteLine("waited\n");
    isWritten = true;
  });
  std::thread reading;
  bool isInTime = false;
  RunNeverWaiting([&] {
    reading = std::thread([&] {
      isInTime = WaitFor([&] {
        usleep(5000);  // slower than the flood by far
        return !out.Read(PIPE_BUF).empty() && isWritten;
      });
      isOver = true;
      while (!isWritten) out.Read();
    });
    while (!isOver) WriteLine(std::string(200, 'k') + "\n");
  });
  reading.join();
  waiting.join();
  Velk::Console::ForgetKept();  // what the flood left
  EXPECT_TRUE(isInTime);
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
  const std::pair<const char*, long> kZones[] = {{"UTC0", 0}, {"XYZ-5:30", 19800}, {"ABC+3", -10800}};
  for (const auto& [zone, offset] : kZones) {
    setenv("TZ", zone, 1);
    // "[HH:MM:SS." by the clock, and by the stamp.
    EXPECT_TRUE(WaitFor([offset = offset] {
      const long second = static_cast<long>((time(nullptr) + offset) % 86400);
      char stamp[Velk::TimeStamp::kLength], expected[32];
      EXPECT_EQ(Velk::TimeStamp::Put(stamp), stamp + sizeof stamp);
      snprintf(expected, sizeof expected, "[%02ld:%02ld:%02ld.", second / 3600, second / 60 % 60,
               second % 60);
      return memcmp(stamp, expected, strlen(expected)) == 0 && stamp[13] == ']';
    })) << zone;
  }
  unsetenv("TZ");
}

}  // namespace
