#include "common/AppThread2.h"

#include "tests/unit/Test.h"

namespace {

struct Counts {
  std::atomic<int> starts{0};   // calls of Driver()
  std::atomic<int> exits{0};    // correct calls of OnExit()
  std::atomic<int> deleted{0};  // calls of the destructor on Driver()'s thread
};

struct Worker : AppThread2 {
  Worker(Counts& counts, bool returnsAtOnce, bool autoDelete = false)
      : AppThread2(0, 0, autoDelete ? nullptr : "worker", autoDelete),
        m_counts(counts),
        m_returnsAtOnce(returnsAtOnce) {}
  ~Worker() override { m_counts.deleted += m_thread == std::this_thread::get_id(); }

  void Driver() override {
    m_thread = std::this_thread::get_id();
    ++m_counts.starts;
    while (!m_returnsAtOnce && IsRunning()) usleep(50);
  }
  void OnExit() override {
    const bool mayEnd = m_returnsAtOnce || !IsRunning();
    m_counts.exits += mayEnd && m_thread == std::this_thread::get_id();
  }

  Counts& m_counts;
  const bool m_returnsAtOnce;
  std::thread::id m_thread;
};

}  // namespace

TEST(AppThread2, RunsAgainAfterItWasStoppedOrReturned) {
  Counts counts;
  Worker worker(counts, false);
  EXPECT_STREQ("worker", worker.GetName());
  worker.Stop();  // not started: returns at once
  for (int round = 1; round <= 3; ++round) {
    ASSERT_TRUE(worker.Run());
    EXPECT_FALSE(worker.Run());
    ASSERT_TRUE(WaitFor([&] { return counts.starts == round; }));
    worker.Stop();
    EXPECT_EQ(round, counts.exits);  // Stop() waits for OnExit()
    EXPECT_EQ(round, counts.starts);
  }

  Counts ends;
  Worker brief(ends, true);
  for (int round = 1; round <= 100; ++round) ASSERT_TRUE(WaitFor([&] { return brief.Run(); }));
  brief.Stop();
  EXPECT_EQ(100, ends.exits);
}

// For the sanitizers: Stop() and the end of Driver() race, and the object is destroyed at once.
TEST(AppThread2, MayBeDestroyedAfterStop) {
  Counts counts;
  for (int round = 0; round < 500; ++round) {
    Worker worker(counts, round % 2 == 0);
    ASSERT_TRUE(worker.Run());
    if (round % 3 == 0) usleep(static_cast<useconds_t>(round % 100));
    worker.Stop();
  }
}

TEST(AppThread2, EntryFunctionReturnsWithoutRun) {
  Counts counts;
  Worker worker(counts, false);
  AppThread2::DriverFunction0(&worker);
  ASSERT_TRUE(worker.Run());
  worker.Stop();
  AppThread2::DriverFunction0(&worker);
  EXPECT_EQ(3, counts.exits);
}

TEST(AppThread2, RunFailsAfterAFailureUntilStopIsCalled) {
  struct Starved : Worker {
    explicit Starved(Counts& counts) : Worker(counts, false) {}
    bool StartThread() override { return !std::exchange(m_isStarved, false) && Worker::StartThread(); }
    bool m_isStarved = true;
  };
  Counts counts;
  Starved worker(counts);
  EXPECT_FALSE(worker.Run());
  EXPECT_FALSE(worker.Run());
  worker.Stop();
  EXPECT_TRUE(worker.Run());
  worker.Stop();
  EXPECT_EQ(1, counts.exits);
}

TEST(AppThread2, DeletesItselfWhenAsked) {
  Counts counts;
  for (int round = 0; round < 200; ++round) {
    auto* thread = new Worker(counts, round % 2 == 0, true);
    EXPECT_EQ(nullptr, thread->GetName());
    ASSERT_TRUE(thread->Run());
    if (round % 2 != 0) thread->Stop();
    ASSERT_TRUE(WaitFor([&] { return counts.deleted == round + 1; }));
  }
}
