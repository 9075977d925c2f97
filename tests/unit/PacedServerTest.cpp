#include "app/PacedServer.h"

#include <sys/resource.h>

#include "common/IGenericDispatchTarget.h"
#include "tests/unit/Test.h"

namespace {

// A queue whose worker thread is blocked until released. The test acts as receive thread.
struct Service : Velk::IGenericDispatchTarget {
  Service() { EXPECT_TRUE(m_queue.Run()); }
  ~Service() override { m_queue.Stop(); }

  bool Dispatch(const char*, const Velk::IArgsList*) override {
    WaitFor([&] { return m_mayGoOn.load(); });
    return ++m_done != 0;
  }
  void Receive(unsigned calls, bool isDrained) {
    for (unsigned i = 0; i < calls; ++i) {
      ++m_received;
      m_queue.Post(this, "Call", nullptr);
      if (i % 8 == 7) m_server.AfterBatch(isDrained);
      m_mostPending = std::max(m_mostPending, m_received - m_done);
    }
  }

  std::atomic<bool> m_mayGoOn{false};
  std::atomic<unsigned> m_done{0};
  unsigned m_received = 0, m_mostPending = 0;
  Velk::GDQ m_queue{0, 0, "queue", false};
  PacedServer m_server{m_queue};
};

}  // namespace

TEST(PacedServer, BoundsPendingCalls) {
  Service service;
  service.Receive(PacedServer::kMaxPendingCalls - 8, false);
  std::thread releaser([&] {
    usleep(20000);  // long enough to receive too much if there is no bound
    service.m_mayGoOn = true;
  });
  service.Receive(3 * PacedServer::kMaxPendingCalls, true);
  EXPECT_GE(PacedServer::kMaxPendingCalls + 8, service.m_mostPending);
  releaser.join();
}

// Counts pauses by their sleeps. A short one while datagrams are pending would let the kernel's buffer
// overflow.
TEST(PacedServer, PausesBrieflyAndOnlyWithoutPendingDatagrams) {
  const auto sleeps = [] {
    rusage usage;
    getrusage(RUSAGE_THREAD, &usage);
    return usage.ru_nvcsw;
  };
  Service service;
  const long before = sleeps();
  service.Receive(800, false);
  EXPECT_GT(before + 20, sleeps());
  service.Receive(800, true);
  EXPECT_LT(before + 90, sleeps());
  EXPECT_EQ(0U, service.m_done);
  service.m_mayGoOn = true;
}
