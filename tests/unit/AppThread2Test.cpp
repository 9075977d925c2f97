#include "common/AppThread2.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "tests/unit/WaitFor.h"

namespace {

// Runs until it is stopped, or not at all.
class Worker : public AppThread2 {
 public:
  explicit Worker(bool returnsAtOnce = false)
      : AppThread2(0, 0, "worker", false), m_returnsAtOnce(returnsAtOnce) {}

  void Driver() override {
    m_thread = pthread_self();
    ++m_starts;
    while (!m_returnsAtOnce && IsRunning()) usleep(50);
  }
  void OnExit() override {
    m_exitsOnThread += pthread_equal(m_thread, pthread_self());
    m_running = IsRunning();
  }

  std::atomic<int> m_starts{0};
  std::atomic<int> m_exitsOnThread{0};
  bool m_running = false;  // at the end

 private:
  const bool m_returnsAtOnce;
  pthread_t m_thread{};
};

}  // namespace

TEST(AppThread2, RunsUntilStoppedAndAgain) {
  Worker worker;
  EXPECT_STREQ("worker", worker.GetName());
  worker.Stop();  // never started: returns at once
  for (int round = 1; round <= 3; ++round) {
    ASSERT_TRUE(worker.Run());
    EXPECT_FALSE(worker.Run());
    ASSERT_TRUE(WaitFor([&] { return worker.m_starts == round; }));
    worker.Stop();
    // Stop() has waited for all of it.
    EXPECT_EQ(round, worker.m_exitsOnThread);
    EXPECT_EQ(round, worker.m_starts);
    EXPECT_FALSE(worker.m_running);
  }
}

TEST(AppThread2, CanRunAgainWhenTheDriverHasEnded) {
  Worker worker(true);
  for (int round = 1; round <= 100; ++round) ASSERT_TRUE(WaitFor([&] { return worker.Run(); }));
  worker.Stop();
  EXPECT_TRUE(WaitFor([&] { return worker.m_exitsOnThread == 100; }));
  worker.Stop();
}

// The sanitizers watch: Stop() and the end of the driver meet in all orders, and the object goes at once.
TEST(AppThread2, MayBeDestroyedAfterStop) {
  for (int round = 0; round < 500; ++round) {
    Worker worker(round % 2 == 0);
    ASSERT_TRUE(worker.Run());
    if (round % 3 == 0) usleep(static_cast<useconds_t>(round % 100));
    worker.Stop();
  }
}

namespace {

class SelfDeleting : public AppThread2 {
 public:
  SelfDeleting(std::atomic<int>& deleted, bool returnsAtOnce)
      : AppThread2(0, 0, nullptr, true), m_deleted(deleted), m_returnsAtOnce(returnsAtOnce) {}
  ~SelfDeleting() override {
    m_deletedOnThread = pthread_equal(m_thread, pthread_self()) != 0;
    ++m_deleted;
  }
  void Driver() override {
    m_thread = pthread_self();
    while (!m_returnsAtOnce && IsRunning()) usleep(50);
  }

  static inline std::atomic<bool> m_deletedOnThread{false};

 private:
  std::atomic<int>& m_deleted;
  const bool m_returnsAtOnce;
  pthread_t m_thread{};
};

}  // namespace

TEST(AppThread2, DeletesItselfWhenAsked) {
  std::atomic<int> deleted{0};
  for (int round = 0; round < 200; ++round) {
    auto* thread = new SelfDeleting(deleted, round % 2 == 0);
    EXPECT_EQ(nullptr, thread->GetName());
    ASSERT_TRUE(thread->Run());
    if (round % 2 != 0) thread->Stop();
    ASSERT_TRUE(WaitFor([&] { return deleted == round + 1; }));
    EXPECT_TRUE(SelfDeleting::m_deletedOnThread);
  }
}

#ifdef __GLIBC__
TEST(AppThread2, StaysRunningAfterAFailedStart) {
  pthread_attr_t normal;
  pthread_attr_t huge;
  ASSERT_EQ(0, pthread_getattr_default_np(&normal));
  pthread_attr_init(&huge);
  pthread_attr_setstacksize(&huge, SIZE_MAX / 8 * 7);  // no room for such a stack
  ASSERT_EQ(0, pthread_setattr_default_np(&huge));
  Worker worker;
  EXPECT_FALSE(worker.Run());
  ASSERT_EQ(0, pthread_setattr_default_np(&normal));
  EXPECT_FALSE(worker.Run());  // not until the failure was acknowledged
  worker.Stop();
  EXPECT_EQ(0, worker.m_starts);
  EXPECT_TRUE(worker.Run());
  worker.Stop();
  EXPECT_EQ(1, worker.m_starts);
  pthread_attr_destroy(&huge);
  pthread_attr_destroy(&normal);
}
#endif
