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
  if (sizeof(time_t) > sizeof(long)) GTEST_SKIP() << "the clock's functions have other names here";
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

TEST(GDQ, LimitHoldsPostersBackButNeverItsOwnThread) {
  constexpr int kPosts = 200;
  std::atomic<int> posted{0};
  int done = 0, mostAhead = 0;
  Target target, slow;
  Queue queue;
  queue.m_maxPosts = 8;
  target.m_handler = [&](const char* name) {
    if (name[0] == 'E') return;
    if (done == 0) usleep(20000);  // time in which an unlimited poster would run away
    mostAhead = std::max(mostAhead, posted.load() - done++);
    for (int i = 0; i < 3; ++i) queue.Post(&target, "Echo", nullptr);
  };
  ASSERT_TRUE(queue.Run());
  std::thread poster([&] {
    for (int i = 0; i < kPosts; ++i, ++posted) queue.Post(&target, "Peer", nullptr);
  });
  EXPECT_TRUE(target.WaitForCount(kPosts * 4));
  poster.join();
  EXPECT_LE(mostAhead, 8 + 1);  // and the one that is being handled

  // A poster that waits must not wait for a thread that has ended.
  slow.m_handler = [](const char*) { usleep(200); };
  std::thread late([&] {
    for (int i = 0; i < kPosts; ++i) queue.Post(&slow, "Late", nullptr);
  });
  queue.Stop();
  late.join();
}

// A pause has an end, and after a long one there is no other before the thread is done with all posts.
TEST(GDQ, ThreadThatIsSlowOrStandsStillHoldsNobodyBack) {
  constexpr size_t kPosts = 4000;  // take longer than WaitFor() does, should each of them pause
  constexpr size_t kSlowPosts = 500;
  std::atomic<bool> mayGoOn{false};
  Target target, slow;
  Queue queue;
  queue.m_pausePosts = 16;
  slow.m_handler = [](const char*) { usleep(200); };
  target.m_handler = [&](const char*) { WaitFor([&] { return mayGoOn.load(); }); };
  ASSERT_TRUE(queue.Run());
  const auto begin = std::chrono::steady_clock::now();
  for (size_t i = 0; i < kPosts; ++i) queue.Post(&target, "Peer", nullptr);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20));
  mayGoOn = true;
  EXPECT_TRUE(target.WaitForCount(kPosts));

  for (size_t i = 0; i < kSlowPosts; ++i) queue.Post(&slow, "Peer", nullptr);
  EXPECT_GT(kSlowPosts / 2, slow.Get().size());
  EXPECT_TRUE(slow.WaitForCount(kSlowPosts));
}

// Many posters, timers and cancels at once; each poster's messages arrive complete and in its order.
TEST(GDQ, KeepsOrderPerPoster) {
  constexpr int kPosters = 4, kPosts = 500;
  Target target, noise;
  Queue queue;
  queue.m_pausePosts = 8;
  noise.m_handler = [&](const char*) { queue.Post(&noise, "Echo", "'of a timer'"); };
  ASSERT_TRUE(queue.Run());
  InThreads(kPosters, [&](unsigned poster) {
    const std::string name = "Poster" + std::to_string(poster);
    for (int i = 0; i < kPosts; ++i) {
      queue.Post(&target, name.c_str(), std::to_string(i).c_str());
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
