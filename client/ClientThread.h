// Client layer: gives a client time on a thread of its own.
#pragma once

#include <pthread.h>
#include <sys/types.h>

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
  // Waits until the thread has ended. In a forked child, which does not have the thread, only frees memory.
  void Stop();

 private:
  static void* Run(void* self);

  GDQUdpClient* m_client = nullptr;
  pthread_t m_thread{};
  pid_t m_process = 0;  // that the thread is in; 0: there is none
  int m_end = -1;       // readable when the thread is to end
};

}  // namespace Velk
