#include "app/PacedServer.h"

#include "app/MonitorChild.h"

namespace {

// A short pause starts at kPausePendingCalls. It ends at kFewPendingCalls, not at 0, so that the worker
// thread does not run dry while the receive thread wakes up.
constexpr uint32_t kPausePendingCalls = 40;
constexpr uint32_t kFewPendingCalls = 6;

// Shorter than a peer on loopback needs to fill the socket's buffer, so a short pause loses no datagram.
constexpr uint32_t kShortPauseMs = 2;

}  // namespace

void PacedServer::AfterBatch(bool isDrained) {
  ReportServing();
  const uint32_t pending = m_queue.WaitForFewerPosts(0, 0);
  if (pending >= kMaxPendingCalls) {
    // Waits for half of them: if it waited for one, the two threads would take turns, one call each.
    m_queue.WaitForFewerPosts(kMaxPendingCalls / 2, Velk::GDQ::kForever);
  } else if (isDrained && pending >= kPausePendingCalls) {
    // The receive thread is ahead and would sleep before each datagram, which costs more than receiving it.
    // During the pause datagrams accumulate.
    m_queue.WaitForFewerPosts(kFewPendingCalls, kShortPauseMs);
  }
}
