// Client layer: runs a client on its own thread.
#pragma once

#include <pthread.h>
#include <sys/types.h>

#include <atomic>

namespace Velk {

class GDQUdpClient;

// Calls GDQUdpClient::Process() whenever there is work, so the program needs no event loop. The client's
// listeners run on this thread. Call Start() and Stop() from one thread at a time.
class ClientThread {
 public:
  ClientThread() = default;
  ClientThread(const ClientThread&) = delete;
  ClientThread& operator=(const ClientThread&) = delete;
  ~ClientThread() { Stop(); }

  // The client is not owned, and must be open and stay open until Stop(). Does nothing if the thread is
  // already running. False with errno: the thread cannot be created.
  bool Start(GDQUdpClient* client);
  // Ends and joins the thread. In a forked child, ignores the parent's thread: fork(2) does not copy it.
  void Stop();

 private:
  static void* Run(void* self);

  GDQUdpClient* m_client = nullptr;
  pthread_t m_thread{};
  pid_t m_process = 0;  // the process that created the thread; 0: no thread
  std::atomic<bool> m_end{false};
};

}  // namespace Velk
