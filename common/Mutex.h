// Threads and clock layer: a mutex whose use clang checks at compile time (-Wthread-safety).
#pragma once

#include <pthread.h>

// Attributes of clang's thread safety analysis: which mutex guards data, and which mutex a function needs.
#if defined(__clang__)
#define VELK_THREAD_ATTRIBUTE(attribute) __attribute__((attribute))
#else
#define VELK_THREAD_ATTRIBUTE(attribute)
#endif
#define GUARDED_BY(mutex) VELK_THREAD_ATTRIBUTE(guarded_by(mutex))
#define PT_GUARDED_BY(mutex) VELK_THREAD_ATTRIBUTE(pt_guarded_by(mutex))
#define REQUIRES(mutex) VELK_THREAD_ATTRIBUTE(requires_capability(mutex))
#define EXCLUDES(mutex) VELK_THREAD_ATTRIBUTE(locks_excluded(mutex))
#define ACQUIRE(...) VELK_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define RELEASE(...) VELK_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
#define NO_THREAD_SAFETY_ANALYSIS VELK_THREAD_ATTRIBUTE(no_thread_safety_analysis)

namespace Velk {

// Not recursive. Has no destructor: on Linux pthread_mutex_destroy(3) frees nothing.
class VELK_THREAD_ATTRIBUTE(capability("mutex")) Mutex {
 public:
  constexpr Mutex() = default;
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

  void Lock() ACQUIRE() { pthread_mutex_lock(&m_mutex); }
  void Unlock() RELEASE() { pthread_mutex_unlock(&m_mutex); }

  // For pthread_cond_wait(3).
  pthread_mutex_t* Native() { return &m_mutex; }

 private:
  pthread_mutex_t m_mutex = PTHREAD_MUTEX_INITIALIZER;
};

}  // namespace Velk
