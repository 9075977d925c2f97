// Threads and clock layer: locks a mutex for the duration of a block.
#pragma once

#include "common/Mutex.h"

namespace Velk {

class VELK_THREAD_ATTRIBUTE(scoped_lockable) ScopedLock {
 public:
  // The mutex must outlive the lock.
  explicit ScopedLock(Mutex& mutex) ACQUIRE(mutex) : m_mutex(mutex) { m_mutex.Lock(); }
  ~ScopedLock() RELEASE() { m_mutex.Unlock(); }
  ScopedLock(const ScopedLock&) = delete;
  ScopedLock& operator=(const ScopedLock&) = delete;

 private:
  Mutex& m_mutex;
};

}  // namespace Velk
