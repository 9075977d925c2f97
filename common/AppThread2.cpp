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

// Bytes. The deepest call is a name look-up, which takes up to 100 KiB in glibc.
constexpr size_t kStackSize = 256 << 10;

}  // namespace

bool AppThread2::StartThread() {
  pthread_attr_t attributes;
  if (pthread_attr_init(&attributes) != 0) return false;
  pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
  // Not what "ulimit -s" says, often 8 MiB: that would be half of what a memory limit leaves the service.
  pthread_attr_setstacksize(&attributes, kStackSize);
  pthread_t thread;
  const bool created = pthread_create(&thread, &attributes, DriverFunction0, this) == 0;
  pthread_attr_destroy(&attributes);
  return created;
}

bool AppThread2::Run() {
  int state = kIdle;
  // Not left to the new thread: a Stop() before its first step would have nothing to wait for, and its caller
  // would destroy the object before the thread uses it.
  if (!m_state.compare_exchange_strong(state, kRunning, std::memory_order_acq_rel)) return false;
  m_stopAcknowledgement.store(nullptr, std::memory_order_relaxed);
  // With autoDelete the object may be gone from here on, unless there is no thread.
  if (StartThread()) return true;
  // The owner learns of the failure once and has to acknowledge it with Stop().
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

// A Stop() has begun, so it will publish its flag: ending without it would delete the object while that
// Stop() uses it, or leave it waiting. The flag is in a frame that is left as soon as it is clear, hence the
// last touch.
void AppThread2::AcknowledgeStop() {
  std::atomic<bool>* waiting = nullptr;
  while ((waiting = m_stopAcknowledgement.load(std::memory_order_acquire)) == nullptr) usleep(kPollInterval);
  waiting->store(false, std::memory_order_release);
}

void AppThread2::Stop() {
  int state = kRunning;
  if (!m_state.compare_exchange_strong(state, kStopping, std::memory_order_acq_rel)) {
    if (state == kFailed) m_state.store(kIdle, std::memory_order_release);
    return;  // there is no thread, or it has ended by itself and looks for no flag
  }
  std::atomic<bool> waiting{true};
  m_stopAcknowledgement.store(&waiting, std::memory_order_release);
  // The object is the thread's from here on and may be deleted at any time.
  while (waiting.load(std::memory_order_acquire)) usleep(kPollInterval);
}
