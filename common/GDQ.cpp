#include "common/GDQ.h"

#include <time.h>

#include "common/IGenericDispatchTarget.h"
#include "common/ScopedLock.h"
#include "common/Timer64x.h"

namespace Velk {
namespace {

timespec DeadlineIn(clockid_t clock, uint32_t waitMs) {
  constexpr long kSecond = 1000000000;
  timespec deadline{};
  clock_gettime(clock, &deadline);
  deadline.tv_sec += static_cast<time_t>(waitMs / 1000);
  deadline.tv_nsec += static_cast<long>(waitMs % 1000) * 1000000;
  if (deadline.tv_nsec >= kSecond) {
    deadline.tv_nsec -= kSecond;
    ++deadline.tv_sec;
  }
  return deadline;
}

// deadline null: without one. False: it has passed.
bool WaitOn(pthread_cond_t* condition, Mutex& mutex, const timespec* deadline) REQUIRES(mutex) {
  return (deadline != nullptr ? pthread_cond_timedwait(condition, mutex.Native(), deadline)
                              : pthread_cond_wait(condition, mutex.Native())) == 0;
}

}  // namespace

void GDQ::NodeList::InsertAfter(Node* after, Node* node) {
  Node* before = after != nullptr ? after->m_next : m_head;
  node->m_prev = after;
  node->m_next = before;
  (after != nullptr ? after->m_next : m_head) = node;
  (before != nullptr ? before->m_prev : m_tail) = node;
  ++m_count;
}

void GDQ::NodeList::Unlink(Node* node) {
  (node->m_prev != nullptr ? node->m_prev->m_next : m_head) = node->m_next;
  (node->m_next != nullptr ? node->m_next->m_prev : m_tail) = node->m_prev;
  node->m_prev = node->m_next = nullptr;
  --m_count;
}

void GDQ::NodeList::DeleteAll() {
  while (Node* node = m_head) {
    m_head = node->m_next;
    delete node;
  }
  m_tail = nullptr;
  m_count = 0;
}

// The place is the one that a walk from the head would find. From the tail a post costs the same however many
// are pending, which peers decide; only timers are passed on the way, and peers cannot arm those.
void GDQ::MessageList::AddOrdered(Node* node) {
  Node* after = m_nodes.m_tail;
  while (after != nullptr && after->m_dueMs > node->m_dueMs) after = after->m_prev;
  m_nodes.InsertAfter(after, node);
  if (node->m_dueMs == 0) ++m_postCount;
}

void GDQ::MessageList::Unlink(Node* node) {
  if (node->m_dueMs == 0) --m_postCount;
  m_nodes.Unlink(node);
}

GDQ::Node* GDQ::MessageList::Remove(unsigned int timerId, IGenericDispatchTarget* target) {
  Node* node = m_nodes.m_head;
  while (node != nullptr && (node->m_timerId != timerId || node->m_target != target)) node = node->m_next;
  if (node != nullptr) Unlink(node);
  return node;
}

GDQ::Node* GDQ::MessageList::RemoveByTarget(IGenericDispatchTarget* target) {
  Node* node = m_nodes.m_head;
  while (node != nullptr && node->m_target != target) node = node->m_next;
  if (node != nullptr) Unlink(node);
  return node;
}

void GDQ::MessageList::DeleteAll() {
  m_postCount = 0;
  m_nodes.DeleteAll();
}

GDQ::GDQ(int first, int second, const char* threadName, bool autoDelete)
    : AppThread2(first, second, threadName, autoDelete) {
  pthread_cond_init(&m_wakeCondition, nullptr);
  pthread_condattr_t monotonic;  // the time of day may be set back while a poster waits
  pthread_condattr_init(&monotonic);
  pthread_condattr_setclock(&monotonic, CLOCK_MONOTONIC);
  pthread_cond_init(&m_posterCondition, &monotonic);
  pthread_condattr_destroy(&monotonic);
}

GDQ::~GDQ() {
  {
    const ScopedLock lock(m_listMutex);
    m_messages.DeleteAll();
    m_free.DeleteAll();
  }
  pthread_cond_destroy(&m_posterCondition);
  // The wake mutex and condition are left as they are: a program may end with the thread still asleep on
  // them, and pthread_cond_destroy(3) would wait for it.
}

bool GDQ::Run() {
  {
    const ScopedLock lock(m_wakeMutex);
    m_keepSignalled = false;
  }
  return AppThread2::Run();
}

void GDQ::Stop() {
  {
    // A thread that sleeps until the next post would not see that it is to end. A single signal could come
    // before that and be used up, so it is kept up; Run() takes it back, as the object may be gone after
    // this.
    const ScopedLock lock(m_wakeMutex);
    m_keepSignalled = true;
    Wake();
  }
  AppThread2::Stop();
}

void GDQ::Post(IGenericDispatchTarget* target, const char* name, const char* args) {
  Enqueue(0, 0, 0, target, name, args);
}

void GDQ::PostTimer(unsigned int timerId, unsigned long periodMs, IGenericDispatchTarget* target,
                    const char* name, const char* args) {
  constexpr unsigned long kMostMs = 0xFFFFFFFF;
  const auto period = static_cast<uint32_t>(periodMs < kMostMs ? periodMs : kMostMs);
  Enqueue(NowMs() + period, period, timerId, target, name, args);
}

void GDQ::Enqueue(uint64_t dueMs, uint32_t periodMs, uint32_t timerId, IGenericDispatchTarget* target,
                  const char* name, const char* args) {
  {
    const ScopedLock lock(m_listMutex);
    Node* node = TakeSpare();
    node->m_dueMs = dueMs;
    node->m_periodMs = periodMs;
    node->m_timerId = timerId;
    node->m_target = target;
    // Emptied and appended to, which keeps the buffers.
    node->m_name.Empty();
    node->m_name.Append(name);
    node->m_args.Empty();
    node->m_args.Append(args);
    m_messages.AddOrdered(node);
  }
  // Still up from an earlier post: the thread takes it down before it locks the list, so it has yet to look
  // there. Saves 95 of 3,225 instructions a line (bench/instructions.sh).
  if (m_signalled.load(std::memory_order_relaxed)) return;
  const ScopedLock lock(m_wakeMutex);
  Wake();
}

GDQ::Node* GDQ::TakeSpare() {
  Node* node = m_free.m_head;
  if (node == nullptr) return new Node;
  m_free.Unlink(node);
  return node;
}

void GDQ::Wake() {
  m_signalled = true;
  pthread_cond_signal(&m_wakeCondition);
}

void GDQ::CancelTimer(unsigned int timerId, IGenericDispatchTarget* target) {
  const ScopedLock lock(m_listMutex);
  Node* node = m_messages.Remove(timerId, target);
  if (node != nullptr) Recycle(node);
  TellPoster();
}

void GDQ::CancelAllMessages(IGenericDispatchTarget* target) {
  const ScopedLock lock(m_listMutex);
  while (Node* node = m_messages.RemoveByTarget(target)) Recycle(node);
  TellPoster();
}

uint32_t GDQ::WaitForFewerPosts(uint32_t limit, uint32_t waitMs) {
  {
    const ScopedLock lock(m_listMutex);
    const uint32_t count = m_messages.PostCount();
    if (waitMs == 0 || count < limit) return count;
  }
  const timespec deadline = DeadlineIn(CLOCK_MONOTONIC, waitMs);
  while (!AwaitFewerPosts(limit, waitMs != kForever ? &deadline : nullptr)) {
    const ScopedLock lock(m_wakeMutex);
    Wake();
  }
  const ScopedLock lock(m_listMutex);
  return m_messages.PostCount();
}

// False: the thread rests until the next post and must be woken first, otherwise both would wait for ever.
bool GDQ::AwaitFewerPosts(uint32_t limit, const timespec* deadline) {
  const ScopedLock lock(m_listMutex);
  m_posterLimit = limit;
  bool isInTime = true;
  while (isInTime && IsRunning() && m_messages.PostCount() >= limit) {
    if (m_isResting) {
      m_isResting = false;
      return false;
    }
    isInTime = WaitOn(&m_posterCondition, m_listMutex, deadline);
  }
  m_posterLimit = 0;
  return true;
}

void GDQ::TellPoster() {
  if (m_messages.PostCount() < m_posterLimit) pthread_cond_signal(&m_posterCondition);
}

uint64_t GDQ::NowMs() const {
  return Timer64x::GetMsecCount64();
}

void GDQ::Driver() {
  ArgsParser parser(kMaxArgs);
  uint32_t waitMs = 0;
  while (IsRunning()) {
    WaitForPost(waitMs);
    DeliverDue(parser, waitMs);
  }
  const ScopedLock lock(m_listMutex);
  pthread_cond_signal(&m_posterCondition);
}

// Sleeps until there was a post, or at most waitMs milliseconds. A wake-up without a post starts the wait
// again, which may make it longer; what is due is decided by the message clock alone.
void GDQ::WaitForPost(uint32_t waitMs) {
  const ScopedLock lock(m_wakeMutex);
  while (!m_signalled && Sleep(m_wakeMutex, waitMs)) continue;
  if (!m_keepSignalled) m_signalled = false;
}

bool GDQ::Sleep(Mutex& wakeMutex, uint32_t waitMs) {
  const timespec deadline = DeadlineIn(CLOCK_REALTIME, waitMs);
  return WaitOn(&m_wakeCondition, wakeMutex, waitMs != kForever ? &deadline : nullptr);
}

// A message in the thread's hands, to be used without any lock.
struct GDQ::Delivery {
  Node* m_oneShot = nullptr;  // owned until it is recycled; null for a periodic message
  IGenericDispatchTarget* m_target = nullptr;
  const char* m_name = nullptr;
  const char* m_args = nullptr;
  // A periodic message is back in the list while it is dispatched. If it is cancelled then, perhaps by its
  // own handler, the next post refills its node; a reference to the texts makes that post write into buffers
  // of its own and leaves these to the handler and the error reporter.
  RefString m_heldName;
  RefString m_heldArgs;
};

// Delivers one message after the other until none is due, and sets waitMs to the time until one will be.
void GDQ::DeliverDue(ArgsParser& parser, uint32_t& waitMs) {
  Node* done = nullptr;
  bool isParsed = true;
  while (isParsed && IsRunning()) {
    Delivery delivery;
    if (!TakeDue(done, delivery, waitMs)) return;
    done = delivery.m_oneShot;
    isParsed = Deliver(delivery, parser);
  }
  // Deliberately with the wait as it was: messages after one that does not parse are looked at when that wait
  // ends or with the next post, so that a peer's garbage gets one look per post and no more.
  const ScopedLock lock(m_listMutex);
  if (done != nullptr) Recycle(done);
  m_isResting = true;
  if (m_posterLimit != 0) pthread_cond_signal(&m_posterCondition);
}

// done (may be null) is recycled first: one locking for both, as posters contend for it.
bool GDQ::TakeDue(Node* done, Delivery& delivery, uint32_t& waitMs) {
  const ScopedLock lock(m_listMutex);
  if (done != nullptr) Recycle(done);
  Node* node = m_messages.Head();
  if (node == nullptr) {
    waitMs = kForever;
    return false;
  }
  const uint64_t now = node->m_dueMs != 0 ? NowMs() : 0;  // a plain post needs no clock
  // Only once the clock has passed it, so that no message comes early by a part of a millisecond.
  if (node->m_dueMs != 0 && node->m_dueMs >= now) {
    waitMs = static_cast<uint32_t>(node->m_dueMs - now);
    return false;
  }
  m_messages.Unlink(node);
  TellPoster();
  delivery.m_target = node->m_target;
  delivery.m_name = node->m_name.Str();
  delivery.m_args = node->m_args.Str();
  if (node->m_periodMs == 0) {
    delivery.m_oneShot = node;
    return true;
  }
  delivery.m_heldName.Set(node->m_name);
  delivery.m_heldArgs.Set(node->m_args);
  // From now, not from when it was due: a thread that was held up does not catch up on what it missed.
  node->m_dueMs = now + node->m_periodMs;
  m_messages.AddOrdered(node);
  return true;
}

// False: the arguments do not parse, which is reported. A periodic message stays armed all the same and is
// reported again each time.
bool GDQ::Deliver(const Delivery& delivery, ArgsParser& parser) {
  IGenericDispatchTarget* target = delivery.m_target;
  const char* name = delivery.m_name;
  const char* args = delivery.m_args;
  if (!parser.ParseArgs(args)) {
    if (m_errorReporter != nullptr) m_errorReporter->OnParseError(target, name, args);
    return false;
  }
  const bool done = target != nullptr && target->Dispatch(name, parser.GetArgs());
  if (!done && m_errorReporter != nullptr) m_errorReporter->OnDispatchError(target, name, args);
  return true;
}

}  // namespace Velk
