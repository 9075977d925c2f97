// Application layer: the channel's server, in step with the queue that its calls are posted on.
#pragma once

#include "common/GDQ.h"
#include "common/GDQUdpSrv.h"

// Decides when the receive thread waits for the worker thread: while too many calls are pending, and to let
// datagrams gather.
class PacedServer final : public Velk::GDQUdpSrv {
 public:
  // The queue is not owned and must outlive the server.
  explicit PacedServer(Velk::GDQ& queue) : m_queue(queue) {}

  // Calls that may be pending on the queue: at most 5 MB, a part of a second of work. Further datagrams wait
  // in the socket's buffer, which drops what it cannot hold.
  static constexpr uint32_t kMaxPendingCalls = 2000;

  void AfterBatch(bool isEmpty) override;

 private:
  Velk::GDQ& m_queue;
};
