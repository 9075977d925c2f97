#include "common/AppThread2.h"

#include <pthread.h>
#include <unistd.h>

#include "common/TextOps.h"

namespace {

// Microseconds between polls while Stop() and the ending thread wait for each other.
constexpr useconds_t kPollInterval = 100;

}  // namespace

AppThread2::AppThread2(int, int, const char* name, bool autoDelete)
    : m_name(Velk::TextOps::Strdup(name)), m_autoDelete(autoDelete) {}

AppThread2::~AppThread2() {
  delete[] m_name;
}

namespace {

// In bytes. The deepest call is a name lookup, which takes up to 100 KiB in glibc.
constexpr size_t kStackSize = 256 << 10;

}  // namespace

bool AppThread2::StartThread() {
  pthread_attr_t attributes;
  if (pthread_attr_init(&attributes) != 0) return false;
  pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
  // The default is "ulimit -s", often 8 MiB, which is half of the start scripts' memory limit.
  pthread_attr_setstacksize(&attributes, kStackSize);
  pthread_t thread;
  const bool created = pthread_create(&thread, &attributes, DriverFunction0, this) == 0;
  pthread_attr_destroy(&attributes);
  return created;
}

bool AppThread2::Run() {
  int state = kIdle;
  // The state must change here, not in the new thread: otherwise a Stop() before the thread's first step
  // would return at once, and its caller could destroy the object too early.
  if (!m_state.compare_exchange_strong(state, kRunning, std::memory_order_acq_rel)) return false;
  m_stopAcknowledgement.store(nullptr, std::memory_order_relaxed);
  // With autoDelete the object may be gone once the thread runs.
  if (StartThread()) return true;
  // The owner must call Stop() before the next Run().
  m_state.store(kFailed, std::memory_order_release);
  return false;
}

void* AppThread2::DriverFunction0(void* self) {
  auto* thread = static_cast<AppThread2*>(self);
  thread->Driver();
  thread->OnExit();
  const bool autoDelete = thread->m_autoDelete;
  const int state = thread->m_state.exchange(kIdle, std::memory_order_acq_rel);
  if (state == kStopping) thread->AcknowledgeStop();
  // Without autoDelete the owner may have destroyed the object by now.
  if (autoDelete) delete thread;
  return nullptr;
}

// Stop() has begun and will publish its flag. Ending without waiting for the flag could delete the object
// that Stop() still uses, or leave Stop() waiting. The flag is on Stop()'s stack, so nothing may touch it
// after the store.
void AppThread2::AcknowledgeStop() {
  std::atomic<bool>* waiting = nullptr;
  while ((waiting = m_stopAcknowledgement.load(std::memory_order_acquire)) == nullptr) usleep(kPollInterval);
  waiting->store(false, std::memory_order_release);
}

void AppThread2::Stop() {
  int state = kRunning;
  if (!m_state.compare_exchange_strong(state, kStopping, std::memory_order_acq_rel)) {
    if (state == kFailed) m_state.store(kIdle, std::memory_order_release);
    return;  // there is no thread, or it ended by itself
  }
  std::atomic<bool> waiting{true};
  m_stopAcknowledgement.store(&waiting, std::memory_order_release);
  // From here on the thread may delete the object at any time.
  while (waiting.load(std::memory_order_acquire)) usleep(kPollInterval);
}
