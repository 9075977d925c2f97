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

// Runs action on a thread that must not block, and joins it.
template <typename Action>
void RunNeverWaiting(Action action) {
  std::thread([&action] {
    Velk::Console::NeverWaitOnThisThread("test");
    action();
  }).join();
}

const std::regex kWarning(
    R"(\[\d\d:\d\d:\d\d\.\d{3}\]\[# *\d+\] test\.Warning: Console lines dropped here: (\d+))");

// Service managers make stdout a socket, which cannot be reopened through /proc.
TEST(Console, DropsAndCountsOnASocketToo) {
  StdoutPipe out(true);
  while (send(STDOUT_FILENO, "#", 1, MSG_DONTWAIT) == 1) continue;
  RunNeverWaiting([&] {
    for (int i = 0; i < 12; ++i) WriteLine("dropped\n");
    out.Read();
    if (fork() == 0) {
      WriteLine("child\n");  // must not report the parent's losses
      _exit(0);
    }
    wait(nullptr);
    WriteLine("next\n");
  });
  EXPECT_EQ(std::regex_replace(out.Read(), kWarning, "<$1>"), "child\n<12>\nnext\n");
}

TEST(Console, DropsNothingIfTheLockIsHeldBriefly) {
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

TEST(Console, DropsWhileTheLocksOwnerWaitsForTheReader) {
  const std::string large = std::string(200000, '#') + "\n";
  StdoutPipe out;
  std::thread waiting(WriteLine, large);
  EXPECT_TRUE(WaitFor([] { return ftrylockfile(stdout) != 0 || (funlockfile(stdout), false); }));
  RunNeverWaiting([] { WriteLine("dropped\n"); });
  std::string all;
  EXPECT_TRUE(WaitFor([&] { return (all += out.Read()).size() >= large.size(); }));
  waiting.join();
  WriteLine("next\n");
  all += out.Read();
  EXPECT_EQ(std::regex_replace(all.substr(large.size()), kWarning, "<$1>"), "<1>\nnext\n");
}

TEST(Console, WarnsOnANewLineAfterAPartlyWrittenOne) {
  StdoutPipe out;
  fcntl(STDOUT_FILENO, F_SETPIPE_SZ, PIPE_BUF);
  RunNeverWaiting([&] {
    WriteLine(std::string(2 * PIPE_BUF - 2, '#') + "\n");  // only the first half fits
    out.Read();
    WriteLine("next\n");
  });
  EXPECT_EQ(std::regex_replace(out.Read(), kWarning, "<$1>"), "\n<1>\nnext\n");
}

TEST(Console, DoesNotCountWhatAFullDeviceLoses) {
  StdoutPipe out;
  const int pipe = dup(STDOUT_FILENO), full = open("/dev/full", O_WRONLY | O_CLOEXEC);
  dup2(full, STDOUT_FILENO);
  WriteLine("lost\n");
  RunNeverWaiting([] { WriteLine("lost\n"); });
  dup2(pipe, STDOUT_FILENO);
  for (const int fd : {pipe, full}) close(fd);
  WriteLine("next\n");
  EXPECT_EQ(out.Read(), "next\n");
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
    // Compares "[HH:MM:SS." of the clock and of the stamp.
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
