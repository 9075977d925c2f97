#include "common/GDQ.h"

#include <sched.h>

#include <functional>

#include "tests/unit/QueueModel.h"

namespace {

struct Target : Velk::IGenericDispatchTarget {
  bool Dispatch(const char*, const Velk::IArgsList*) override {
    ++m_count;
    if (m_handler) m_handler();
    return true;
  }

  std::function<void()> m_handler;
  std::atomic<size_t> m_count{0};
};

// Stops the thread while the members that it uses still exist.
struct Queue : Velk::GDQ {
  Queue() : GDQ(0, 0, "queue", false) {}
  ~Queue() override { Stop(); }
};

}  // namespace

TEST(GDQ, AgreesWithASortedVector) {
  QueueModel(Choices::Random(3, 300000)).Run();
}

// Runs on one processor, where the woken thread usually runs before its waker continues.
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
      ASSERT_TRUE(round % 20 != 0 || WaitFor([&] { return target.m_count >= round; }));
      queue.Stop();  // while the thread is at work, asleep, or about to sleep
      queue.Post(&target, "Pending", nullptr);
    }
  }
  sched_setaffinity(0, sizeof all, &all);
  EXPECT_EQ(kRounds, target.m_count);  // destruction drops the last one
}

TEST(GDQ, BlocksAPosterNoLongerThanAsked) {
  constexpr useconds_t kAsleep = 20000;  // us until the poster is asleep
  std::atomic<bool> mayGoOn{false};
  Target target;
  Queue queue;
  target.m_handler = [&] { WaitFor([&] { return mayGoOn.load(); }); };
  ASSERT_TRUE(queue.Run());
  queue.Post(&target, "Stalls", nullptr);
  EXPECT_EQ(0U, queue.WaitForFewerPosts(1, Queue::kForever));
  queue.PostTimer(1, 0, &target, "Timer", nullptr);  // timers do not count
  queue.Post(&target, "Cancelled", nullptr);
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(1U, queue.WaitForFewerPosts(1, 20));
  EXPECT_LE(std::chrono::milliseconds(20), std::chrono::steady_clock::now() - begin);
  std::thread canceller([&] {
    usleep(kAsleep);
    queue.CancelTimer(0, &target);
  });
  EXPECT_EQ(0U, queue.WaitForFewerPosts(1, Queue::kForever));
  canceller.join();
  queue.Post(&target, "Kept", nullptr);
  std::thread stopper([&] {
    usleep(kAsleep);
    queue.Stop();
  });
  std::thread releaser([&] {
    usleep(2 * kAsleep);
    mayGoOn = true;
  });
  queue.WaitForFewerPosts(1, Queue::kForever);  // until the thread has ended
  stopper.join();
  releaser.join();
  EXPECT_GT(std::chrono::seconds(10), std::chrono::steady_clock::now() - begin);
}

// After an unparsable call the worker thread sleeps even if more are pending. The waiting poster must wake
// it, as no further post comes.
TEST(GDQ, GarbageDoesNotStallAWaitingPoster) {
  struct IdleQueue : Queue {
    bool Sleep(Velk::Mutex& wakeMutex, uint32_t waitMs) override REQUIRES(wakeMutex) {
      if (waitMs == kForever) m_isIdle = true;
      return Queue::Sleep(wakeMutex, waitMs);
    }
    ~IdleQueue() override { Stop(); }
    std::atomic<bool> m_isIdle{false};
  };
  constexpr uint32_t kPosts = 100;
  IdleQueue queue;
  ASSERT_TRUE(queue.Run() && WaitFor([&] { return queue.m_isIdle.load(); }));
  for (uint32_t i = 0; i < kPosts; ++i) queue.Post(nullptr, "Garbage", "'open");
  EXPECT_EQ(0U, queue.WaitForFewerPosts(1, 20000));
}
