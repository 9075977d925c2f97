// Threads and clock layer: holds a mutex for the length of a block.
#pragma once

#include <pthread.h>

namespace Velk {

class ScopedLock {
 public:
  // The mutex must outlive the lock.
  explicit ScopedLock(pthread_mutex_t& mutex) : m_mutex(mutex) { pthread_mutex_lock(&m_mutex); }
  ~ScopedLock() { pthread_mutex_unlock(&m_mutex); }
  ScopedLock(const ScopedLock&) = delete;
  ScopedLock& operator=(const ScopedLock&) = delete;

 private:
  pthread_mutex_t& m_mutex;
};

}  // namespace Velk
