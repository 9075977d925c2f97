// Threads and clock layer: a class whose driver runs on a thread of its own.
#pragma once

#include <atomic>

// Run() and Stop() are for the owner, one at a time. The thread is detached: only Stop(), or the object's own
// end with autoDelete, tells when it is gone.
class AppThread2 {
 public:
  // The numbers are ignored; callers pass 0. name is copied and may be null. autoDelete: the object is on the
  // heap, and the thread deletes it once the driver has ended.
  AppThread2(int, int, const char* name, bool autoDelete);
  AppThread2(const AppThread2&) = delete;
  AppThread2& operator=(const AppThread2&) = delete;

  // The thread's body. Returns soon after IsRunning() turns false, or earlier.
  virtual void Driver() = 0;
  // Runs on the thread after Driver().
  virtual void OnExit() {}
  // Neither stops nor awaits the thread: Stop() first.
  virtual ~AppThread2();

  // Null when the constructor had none.
  const char* GetName() const { return m_name; }

  // Starts the thread. False: it is running, or pthread_create(3) failed. After such a failure every Run()
  // fails until Stop() was called. With autoDelete the object may be gone when this returns.
  bool Run();

  // Asks the driver to end and waits until the thread uses the object no more; there is no time-out. Returns
  // at once when the driver has ended by itself. Must not be called on the thread itself.
  void Stop();

  // Thread entry for pthread_create(3); self is the object. Without Run() the driver finds itself stopped.
  static void* DriverFunction0(void* self);

 protected:
  // Runs DriverFunction0(this) on a detached thread. False: pthread_create(3) failed.
  virtual bool StartThread();

  bool IsRunning() const { return m_state.load(std::memory_order_acquire) >= kRunning; }

 private:
  enum State {
    kIdle,
    kStopping,  // Stop() waits
    kRunning,   // from Run() on
    kFailed,    // Run() got no thread, but the driver may run all the same
  };

  void AcknowledgeStop();

  char* m_name;
  const bool m_autoDelete;
  // Stop() and the ending thread both try to move it on from kRunning: who succeeds came first. A word: some
  // processors exchange nothing smaller without help from a library.
  std::atomic<int> m_state{kIdle};
  // Flag in the frame of a waiting Stop().
  std::atomic<std::atomic<bool>*> m_stopAcknowledgement{nullptr};
};
