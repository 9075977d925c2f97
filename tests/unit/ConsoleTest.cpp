#include "common/Console.h"

#include <sys/wait.h>

#include <regex>
#include <sstream>

#include "common/TimeStamp.h"
#include "tests/unit/StdoutPipe.h"

namespace {

void WriteLine(const std::string& text) {
  const iovec pieces[] = {{const_cast<char*>(text.data()), text.size() / 2},
                          {const_cast<char*>(text.data()) + text.size() / 2, text.size() - text.size() / 2}};
  Velk::Console::WriteLine(pieces, 2);
}

// On a thread that never waits, to its end.
template <typename Action>
void RunNeverWaiting(Action action) {
  std::thread([&action] {
    Velk::Console::NeverWaitOnThisThread("test");
    action();
  }).join();
}

const std::regex kWarning(
    R"(\[\d\d:\d\d:\d\d\.\d{3}\]\[# *\d+\] test\.Warning: Console lines dropped here: (\d+))");

// Reads up to a line that a thread writes which waits, with "<count>" for each warning, and one # for many.
std::string ReadTo(StdoutPipe& out, const std::string& line) {
  std::thread waiting(WriteLine, line);
  std::string all;
  EXPECT_TRUE(WaitFor([&] {
    all += out.Read();
    return all.size() >= line.size() && all.substr(all.size() - line.size()) == line;
  }));
  waiting.join();
  const auto areFilling = [](char a, char b) { return a == '#' && b == '#'; };
  all.erase(std::unique(all.begin(), all.end(), areFilling), all.end());
  return std::regex_replace(all, kWarning, "<$1>");
}

TEST(Console, DropsAndCountsWhereAThreadMustNotWait) {
  for (const bool isSocket : {false, true}) {
    StdoutPipe out(isSocket);
    StdoutPipe::Fill();
    RunNeverWaiting([&] {
      for (int i = 0; i < 12; ++i) WriteLine("dropped\n");
      out.Read();
      if (fork() == 0) {
        WriteLine("child\n");  // which has dropped nothing
        _exit(0);
      }
      wait(nullptr);
      WriteLine("next\n");
      if (!isSocket) WriteLine(std::string(500000, '#'));  // a part of it fits; it would block at a socket
    });
    EXPECT_EQ(ReadTo(out, "last\n"),
              isSocket ? "child\n<12>\nnext\nlast\n" : "child\n<12>\nnext\n#\n<1>\nlast\n");
  }
}

TEST(Console, DropsNothingForALockThatIsHeldForAMoment) {
  StdoutPipe out;
  printf("printed, ");
  flockfile(stdout);
  std::atomic<bool> isStarted{false};
  std::thread trying([&] {
    Velk::Console::NeverWaitOnThisThread("test");
    isStarted = true;
    WriteLine("a line\n");
  });
  EXPECT_TRUE(WaitFor([&] { return isStarted.load(); }));
  for (int i = 0; i < 1000; ++i) sched_yield();
  EXPECT_EQ(out.Read(), "");
  funlockfile(stdout);
  trying.join();
  WriteLine("another\n");
  EXPECT_EQ(out.Read(), "a line\nprinted, another\n");
}

TEST(Console, DropsWhereTheLocksOwnerWaitsForTheReader) {
  StdoutPipe out;
  fcntl(STDOUT_FILENO, F_SETFL, fcntl(STDOUT_FILENO, F_GETFL) | O_NONBLOCK);
  std::thread waiting([] { WriteLine(std::string(200000, '#') + "\n"); });  // short writes
  EXPECT_TRUE(WaitFor([] { return ftrylockfile(stdout) != 0 || (funlockfile(stdout), false); }));
  RunNeverWaiting([] { WriteLine("dropped\n"); });
  EXPECT_EQ(ReadTo(out, "next\n"), "#\n<1>\nnext\n");
  waiting.join();
}

TEST(Console, LinesOfThreadsAndProcessesNeverMixAndAllAreCounted) {
  const auto write = [](char writer) {
    for (int i = 0; i < 10000; ++i) WriteLine(std::string(100, writer) + "\n");
  };
  StdoutPipe out;
  if (fork() == 0) {
    write('p');
    _exit(0);
  }
  std::thread writers([&] {
    std::thread waiting(write, 'w');
    RunNeverWaiting([&] { write('n'); });
    waiting.join();
    wait(nullptr);
    WriteLine("end\n");
  });
  std::string all, line;
  while (all.find("end\n", all.size() - std::min<size_t>(all.size(), 4)) == std::string::npos)
    all += out.Read();
  writers.join();
  std::map<std::string, unsigned long> seen;
  std::istringstream lines(all);
  for (std::smatch match; std::getline(lines, line);) {
    const bool isWarning = std::regex_match(line, match, kWarning);
    seen[isWarning ? std::string(100, 'n') : line] += isWarning ? std::stoul(match[1]) : 1;
  }
  EXPECT_EQ(seen.size(), 4u);
  for (char writer : {'n', 'p', 'w'}) EXPECT_EQ(seen[std::string(100, writer)], 10000u) << writer;
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
