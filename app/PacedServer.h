// Application layer: a server that slows down when the worker thread lags.
#pragma once

#include "common/GDQ.h"
#include "common/GDQUdpSrv.h"

// Pauses the receive thread when too many calls are pending. Pauses it briefly when some are pending but no
// datagram is, so that datagrams collect and are received in one batch.
class PacedServer final : public Velk::GDQUdpSrv {
 public:
  // The queue is not owned and must outlive the server.
  explicit PacedServer(Velk::GDQ& queue) : m_queue(queue) {}

  // Receiving pauses while this many calls (7 MB at worst) are pending on the queue. Further datagrams wait
  // in the socket's buffer; the kernel drops those that do not fit.
  static constexpr uint32_t kMaxPendingCalls = 2000;

  void AfterBatch(bool isDrained) override;

 private:
  Velk::GDQ& m_queue;
};
