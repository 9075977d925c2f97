#include "common/AppThread2.h"

#include <pthread.h>
#include <unistd.h>

#include "common/TextOps.h"

namespace {

// How often a wait for the other thread looks again, in microseconds.
constexpr useconds_t kPollInterval = 100;

}  // namespace

AppThread2::AppThread2(int, int, const char* name, bool autoDelete)
    : m_name(Velk::TextOps::Strdup(name)), m_autoDelete(autoDelete) {}

AppThread2::~AppThread2() {
  delete[] m_name;
}

namespace {

bool CreateDetached(void* (*entry)(void*), void* argument) {
  pthread_attr_t attributes;
  if (pthread_attr_init(&attributes) != 0) return false;
  pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
  pthread_t thread;
  const bool created = pthread_create(&thread, &attributes, entry, argument) == 0;
  pthread_attr_destroy(&attributes);
  return created;
}

}  // namespace

bool AppThread2::Run() {
  if (m_running.exchange(1, std::memory_order_acq_rel) != 0) return false;
  m_stopAcknowledgement.store(nullptr, std::memory_order_relaxed);
  // Not left to the new thread: a Stop() before its first step would see nobody to wait for, and its caller
  // would destroy the object under a thread still to come.
  m_active.store(true, std::memory_order_release);
  // With autoDelete the object may be gone from here on, unless there is no thread.
  if (CreateDetached(DriverFunction0, this)) return true;
  // Running stays set: the owner learns of the failure once and has to acknowledge it with Stop().
  m_active.store(false, std::memory_order_release);
  return false;
}

void* AppThread2::DriverFunction0(void* self) {
  auto* thread = static_cast<AppThread2*>(self);
  thread->Driver();
  thread->OnExit();
  const bool autoDelete = thread->m_autoDelete;
  const bool stopped = thread->m_running.exchange(0, std::memory_order_acq_rel) == 0;
  if (stopped) thread->AcknowledgeStop();
  // Without autoDelete the owner may have destroyed the object by now.
  if (autoDelete) delete thread;
  return nullptr;
}

// A Stop() has begun, so it will publish its flag: ending without it would delete the object under that
// Stop() or leave it waiting. The flag is in a frame that is left as soon as it is clear, hence the last
// touch.
void AppThread2::AcknowledgeStop() {
  std::atomic<bool>* waiting = nullptr;
  while ((waiting = m_stopAcknowledgement.load(std::memory_order_acquire)) == nullptr) usleep(kPollInterval);
  m_active.store(false, std::memory_order_relaxed);
  waiting->store(false, std::memory_order_release);
}

void AppThread2::Stop() {
  // The thread was never started, or has cleared this itself and looks for no flag.
  if (m_running.exchange(0, std::memory_order_acq_rel) == 0) return;
  if (!m_active.load(std::memory_order_acquire)) return;  // Run() had failed
  std::atomic<bool> waiting{true};
  m_stopAcknowledgement.store(&waiting, std::memory_order_release);
  // The object is the thread's from here on and may be deleted at any time.
  while (waiting.load(std::memory_order_acquire)) usleep(kPollInterval);
}
