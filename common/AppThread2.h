// Threads and clock layer: a class that runs its Driver() on its own thread.
#pragma once

#include <atomic>

// The owner calls Run() and Stop(), from one thread at a time. The new thread is detached: only the return of
// Stop(), or with autoDelete the deletion of the object, shows that it has ended.
class AppThread2 {
 public:
  // The numbers are ignored; pass 0. name is copied and may be null. autoDelete: the object is on the heap,
  // and the thread deletes it after OnExit().
  AppThread2(int, int, const char* name, bool autoDelete);
  AppThread2(const AppThread2&) = delete;
  AppThread2& operator=(const AppThread2&) = delete;

  // The thread's body. Must return soon after IsRunning() becomes false; may return earlier.
  virtual void Driver() = 0;
  // Runs on the thread after Driver().
  virtual void OnExit() {}
  // Does not stop the thread: call Stop() first.
  virtual ~AppThread2();

  // Null if the constructor got null.
  const char* GetName() const { return m_name; }

  // Starts the thread. False: it is already running, or pthread_create(3) failed. After such a failure Run()
  // fails until Stop() is called. With autoDelete the object may be gone when this returns.
  bool Run();

  // Asks the driver to end and waits, without a timeout, until the thread no longer uses the object, except
  // to delete it with autoDelete. Returns at once if the thread was not started or has ended by itself. Must
  // not be called on that thread.
  void Stop();

  // Thread entry for pthread_create(3); self is the object. If called without Run(), IsRunning() is false.
  static void* DriverFunction0(void* self);

 protected:
  // Runs DriverFunction0(this) on a detached thread. False: pthread_create(3) failed.
  virtual bool StartThread();

  bool IsRunning() const { return m_state.load(std::memory_order_acquire) >= kRunning; }

 private:
  enum State {
    kIdle,
    kStopping,  // Stop() waits for the thread
    kRunning,   // after Run()
    kFailed,    // no thread was created; IsRunning() stays true until Stop()
  };

  void AcknowledgeStop();

  char* m_name;
  const bool m_autoDelete;
  // Stop() and the ending thread both try to leave kRunning; the exchange decides which came first. An int,
  // because some processors need a library to exchange anything smaller.
  std::atomic<int> m_state{kIdle};
  // Points to a flag on the stack of the waiting Stop().
  std::atomic<std::atomic<bool>*> m_stopAcknowledgement{nullptr};
};
