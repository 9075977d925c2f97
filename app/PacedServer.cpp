#include "app/PacedServer.h"

#include "app/MonitorChild.h"

namespace {

// So many pending calls make a pause worth while, and it ends with so few: the worker thread must not run dry
// while the receive thread wakes.
constexpr uint32_t kPausePendingCalls = 40;
constexpr uint32_t kFewPendingCalls = 6;

// A peer on loopback needs longer to fill the socket's buffer, so no pause loses a datagram.
constexpr uint32_t kMaxPauseMs = 2;

}  // namespace

void PacedServer::AfterBatch(bool isEmpty) {
  ReportServing();
  const uint32_t pending = m_queue.WaitForFewerPosts(0, 0);
  if (pending >= kMaxPendingCalls) {
    // Not only until the next call is done: the two threads would then take turns, one call each.
    m_queue.WaitForFewerPosts(kMaxPendingCalls / 2, Velk::GDQ::kForever);
  } else if (isEmpty && pending >= kPausePendingCalls) {
    // The receive thread is ahead and would fall asleep over each datagram, which costs more than to receive
    // it. Datagrams gather during the pause.
    m_queue.WaitForFewerPosts(kFewPendingCalls, kMaxPauseMs);
  }
}
