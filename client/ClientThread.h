// Client layer: gives a client time on a thread of its own.
#pragma once

#include <pthread.h>
#include <sys/types.h>

#include <atomic>

namespace Velk {

class GDQUdpClient;

// Calls Process() whenever the client needs it. Listeners are then called on this thread. One thread at a
// time.
class ClientThread {
 public:
  ClientThread() = default;
  ClientThread(const ClientThread&) = delete;
  ClientThread& operator=(const ClientThread&) = delete;
  ~ClientThread() { Stop(); }

  // The client is open, is not owned, and stays open until Stop(). False with errno; true when it runs
  // already.
  bool Start(GDQUdpClient* client);
  // Waits until the thread has ended. Does nothing in a forked child, which does not have the thread.
  void Stop();

 private:
  static void* Run(void* self);

  GDQUdpClient* m_client = nullptr;
  pthread_t m_thread{};
  pid_t m_process = 0;  // that the thread is in; 0: there is none
  std::atomic<bool> m_end{false};
};

}  // namespace Velk
