#include "common/GDQ.h"

#include <sched.h>

#include <functional>

#include "tests/unit/QueueModel.h"

namespace {

class Target : public Velk::IGenericDispatchTarget {
 public:
  bool Dispatch(const char* name, const Velk::IArgsList* args) override {
    std::string line = name;
    for (unsigned i = 0; i < args->GetCount(); ++i) line += std::string(" ") + args->GetItem(i)->AsStr();
    {
      const std::lock_guard<std::mutex> lock(m_mutex);
      m_lines.push_back(line);
    }
    if (m_handler) m_handler(name);
    return true;
  }

  Lines Get() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_lines;
  }
  bool WaitForCount(size_t count) const {
    return WaitFor([&] { return Get().size() >= count; });
  }

  std::function<void(const char* name)> m_handler;

 private:
  mutable std::mutex m_mutex;
  Lines m_lines;
};

// A queue that is stopped before what its thread uses goes.
struct Queue : Velk::GDQ {
  Queue() : GDQ(0, 0, "queue", false) {}
  ~Queue() override { Stop(); }
};

}  // namespace

TEST(GDQ, AgreesWithASortedVector) {
  QueueModel(Choices::Random(3, 300000)).Run();
}

TEST(GDQ, DeliversPostsThenTimersInOrder) {
  Target target;
  Queue queue;
  queue.PostTimer(1, 30, &target, "Later", nullptr);
  queue.PostTimer(2, 0, &target, "Now", "1");
  queue.Post(&target, "Post", "'a b' c");
  queue.Post(nullptr, "Nobody", "x");
  queue.Post(&target, nullptr, std::string(1000, 'x').c_str());
  queue.PostTimer(4, 3600 * 1000, &target, "Never", nullptr);
  ASSERT_TRUE(queue.Run() && target.WaitForCount(4));
  EXPECT_EQ((Lines{"Post a b c", " " + std::string(1000, 'x'), "Now 1", "Later"}), target.Get());
}

// On one processor, where the thread that is woken mostly runs before the one that wakes it goes on.
TEST(GDQ, StopWakesTheThreadAndKeepsWhatIsPending) {
  constexpr size_t kRounds = 1000;
  cpu_set_t all, one;
  sched_getaffinity(0, sizeof all, &all);
  CPU_ZERO(&one);
  CPU_SET(static_cast<size_t>(sched_getcpu()), &one);
  sched_setaffinity(0, sizeof one, &one);
  Target target;
  {
    Queue queue;
    for (size_t round = 0; round <= kRounds; ++round) {
      ASSERT_TRUE(queue.Run());
      ASSERT_TRUE(round % 20 != 0 || target.WaitForCount(round));
      queue.Stop();  // at work, asleep, or about to
      queue.Post(&target, "Pending", nullptr);
    }
  }
  sched_setaffinity(0, sizeof all, &all);
  EXPECT_EQ(kRounds, target.Get().size());  // destruction drops the last one
}

TEST(GDQ, HoldsAPosterBackUntilFewArePending) {
  constexpr int kPosts = 200;
  constexpr uint32_t kLimit = 8;
  std::atomic<int> posted{0};
  int done = 0, mostAhead = 0;
  Target target;
  Queue queue;
  queue.Post(&target, "Echo", nullptr);
  EXPECT_EQ(1U, queue.WaitForFewerPosts(1, Queue::kForever));  // the thread does not run: returns at once
  target.m_handler = [&](const char* name) {
    if (name[0] == 'E') return;
    if (done == 0) usleep(20000);  // time in which a poster that is not held back would run away
    mostAhead = std::max(mostAhead, posted.load() - done++);
    queue.Post(&target, "Echo", nullptr);
  };
  ASSERT_TRUE(queue.Run());
  for (; posted < kPosts; ++posted) {
    queue.Post(&target, "Peer", nullptr);
    EXPECT_GT(kLimit, queue.WaitForFewerPosts(kLimit, Queue::kForever));
  }
  EXPECT_EQ(0U, queue.WaitForFewerPosts(1, Queue::kForever));
  EXPECT_LE(mostAhead, static_cast<int>(kLimit));
  ASSERT_TRUE(target.WaitForCount(1 + kPosts * 2));
}

TEST(GDQ, HoldsAPosterBackNoLongerThanAsked) {
  std::atomic<bool> mayGoOn{false};
  Target target;
  Queue queue;
  target.m_handler = [&](const char*) { WaitFor([&] { return mayGoOn.load(); }); };
  ASSERT_TRUE(queue.Run());
  queue.Post(&target, "Stalls", nullptr);
  EXPECT_EQ(0U, queue.WaitForFewerPosts(1, Queue::kForever));
  queue.Post(&target, "Waits", nullptr);
  queue.PostTimer(1, 0, &target, "Timer", nullptr);  // does not count
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(1U, queue.WaitForFewerPosts(1, 20));
  EXPECT_LE(std::chrono::milliseconds(20), std::chrono::steady_clock::now() - begin);
  std::thread canceller([&] { queue.CancelTimer(0, &target); });
  EXPECT_EQ(0U, queue.WaitForFewerPosts(1, Queue::kForever));
  canceller.join();
  queue.Post(&target, "Waits", nullptr);
  std::thread stopper([&] {
    queue.Post(&target, "Waits", nullptr);
    mayGoOn = true;
    queue.Stop();
  });
  queue.WaitForFewerPosts(1, Queue::kForever);  // not for a thread that has ended
  stopper.join();
}

// The thread rests after each of them until the next post, which the poster that waits does not make.
TEST(GDQ, PosterThatWaitsIsNotStalledByGarbage) {
  struct Counter : Velk::IGenericDispatchQueue::IErrorReport {
    using Target = Velk::IGenericDispatchTarget;
    void OnParseError(Target*, const char*, const char*) override { ++m_count; }
    void OnDispatchError(Target*, const char*, const char*) override {}
    void OnPostError(Target*, const char*, const char*) override {}
    std::atomic<int> m_count{0};
  };
  constexpr int kPosts = 500;
  Counter counter;
  Queue queue;
  queue.m_errorReporter = &counter;
  ASSERT_TRUE(queue.Run());
  for (int i = 1; i <= kPosts; ++i) {
    queue.Post(nullptr, "Peer", "'open");
    ASSERT_TRUE(i % 10 != 0 || queue.WaitForFewerPosts(1, 20000) == 0);
  }
  EXPECT_TRUE(WaitFor([&] { return counter.m_count == kPosts; }));
}

// Many posters, timers and cancels at once; each poster's messages arrive complete and in its order.
TEST(GDQ, KeepsOrderPerPoster) {
  constexpr int kPosters = 4, kPosts = 500;
  Target target, noise;
  Queue queue;
  noise.m_handler = [&](const char*) { queue.Post(&noise, "Echo", "'of a timer'"); };
  ASSERT_TRUE(queue.Run());
  InThreads(kPosters, [&](unsigned poster) {
    const std::string name = "Poster" + std::to_string(poster);
    for (int i = 0; i < kPosts; ++i) {
      queue.Post(&target, name.c_str(), std::to_string(i).c_str());
      if (poster == 0) queue.WaitForFewerPosts(8, 1);
      if (i % 16 == 0) queue.PostTimer(9, 1, &noise, "Noise", "`with some text`");
      if (i % 16 == 8) queue.CancelTimer(9, &noise);
      if (i % 64 == 63) queue.CancelAllMessages(&noise);
    }
  });
  ASSERT_TRUE(target.WaitForCount(kPosters * kPosts));
  queue.Stop();
  int next[kPosters] = {};
  for (const std::string& line : target.Get()) {
    const auto poster = static_cast<size_t>(line.at(6) - '0');
    EXPECT_EQ(std::to_string(next[poster]++), line.substr(8));
  }
}
