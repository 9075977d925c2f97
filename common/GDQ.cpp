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

// deadline null: no limit. False: the deadline has passed.
bool WaitOn(pthread_cond_t* condition, Mutex& mutex, const timespec* deadline) REQUIRES(mutex) {
  return (deadline != nullptr ? pthread_cond_timedwait(condition, mutex.Native(), deadline)
                              : pthread_cond_wait(condition, mutex.Native())) == 0;
}

}  // namespace

void GDQ::NodeList::InsertAfter(Node* after, Node* node) {
  Node* next = after != nullptr ? after->m_next : m_head;
  node->m_prev = after;
  node->m_next = next;
  (after != nullptr ? after->m_next : m_head) = node;
  (next != nullptr ? next->m_prev : m_tail) = node;
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

// Searches from the tail, so that a post takes constant time however many calls are pending: the search
// passes only timers, which peers cannot set.
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
  pthread_condattr_t monotonic;  // the wall clock may be set back while a poster waits
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
  // Not m_wakeCondition: a program may exit while the worker thread still waits on it, and
  // pthread_cond_destroy(3) would block.
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
    // Wakes a worker thread that sleeps until the next post. It could consume the signal before it sees that
    // it must end, so m_keepSignalled keeps the signal set. The next Run() clears the flag: Stop() cannot, as
    // the object may be gone once the thread has ended.
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
    // Empty() keeps a buffer that is not shared.
    node->m_name.Empty();
    node->m_name.Append(name);
    node->m_args.Empty();
    node->m_args.Append(args);
    m_messages.AddOrdered(node);
  }
  // If m_signalled is already set, no wake-up is needed: the worker thread clears it before it locks the
  // list, and so finds this message. Saves 3 % of the instructions a line (bench/instructions.sh).
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
  WakePosterIfFew();
}

void GDQ::CancelAllMessages(IGenericDispatchTarget* target) {
  const ScopedLock lock(m_listMutex);
  while (Node* node = m_messages.RemoveByTarget(target)) Recycle(node);
  WakePosterIfFew();
}

uint32_t GDQ::WaitForFewerPosts(uint32_t limit, uint32_t waitMs) {
  uint32_t count;
  {
    const ScopedLock lock(m_listMutex);
    count = m_messages.PostCount();
  }
  if (waitMs == 0 || count < limit) return count;
  const timespec deadline = DeadlineIn(CLOCK_MONOTONIC, waitMs);
  while (!WaitUnlessResting(limit, waitMs != kForever ? &deadline : nullptr, count)) {
    const ScopedLock lock(m_wakeMutex);
    Wake();
  }
  return count;
}

// False: the worker thread may sleep although posts are pending, see DeliverDue(). The caller must wake it,
// or both wait for ever.
bool GDQ::WaitUnlessResting(uint32_t limit, const timespec* deadline, uint32_t& count) {
  const ScopedLock lock(m_listMutex);
  m_posterLimit = limit;
  bool isInTime = true;
  while ((count = m_messages.PostCount()) >= limit && isInTime && IsRunning()) {
    if (m_isResting) {
      m_isResting = false;
      return false;
    }
    isInTime = WaitOn(&m_posterCondition, m_listMutex, deadline);
  }
  m_posterLimit = 0;
  return true;
}

void GDQ::WakePoster() {
  pthread_cond_signal(&m_posterCondition);
}

void GDQ::WakePosterIfFew() {
  if (m_messages.PostCount() < m_posterLimit) WakePoster();
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
  WakePoster();
}

// Sleeps until there is a post, or for waitMs milliseconds of the wall clock. A spurious wake-up restarts the
// wait. The end may be early if the clock is set, so TakeDue() checks what is due.
void GDQ::WaitForPost(uint32_t waitMs) {
  const ScopedLock lock(m_wakeMutex);
  while (!m_signalled && Sleep(m_wakeMutex, waitMs)) continue;
  if (!m_keepSignalled) m_signalled = false;
}

bool GDQ::Sleep(Mutex& wakeMutex, uint32_t waitMs) {
  const timespec deadline = DeadlineIn(CLOCK_REALTIME, waitMs);
  return WaitOn(&m_wakeCondition, wakeMutex, waitMs != kForever ? &deadline : nullptr);
}

// A message that is being delivered, used without a lock.
struct GDQ::Delivery {
  Node* m_oneShot = nullptr;  // owned until recycled; null for a periodic message
  IGenericDispatchTarget* m_target = nullptr;
  const char* m_name = nullptr;
  const char* m_args = nullptr;
  // A periodic message is in the list again while it is dispatched. If it is cancelled then, perhaps by its
  // own handler, the next post reuses its node. These references make that post take new buffers, so the
  // texts stay valid for the handler and the error reporter.
  RefString m_heldName;
  RefString m_heldArgs;
};

// Delivers messages until none is due, then sets waitMs to the time until the next one is. Stops early at a
// message that cannot be parsed.
void GDQ::DeliverDue(ArgsParser& parser, uint32_t& waitMs) {
  Node* done = nullptr;
  bool isParsed = true;
  while (isParsed && IsRunning()) {
    Delivery delivery;
    if (!TakeDue(done, delivery, waitMs)) return;
    done = delivery.m_oneShot;
    isParsed = Deliver(delivery, parser);
  }
  // After a message that cannot be parsed the thread sleeps, with waitMs unchanged, even if more are due.
  // That is on purpose: each wake-up handles at most one garbage call from a peer.
  const ScopedLock lock(m_listMutex);
  if (done != nullptr) Recycle(done);
  m_isResting = true;
  if (m_posterLimit != 0) WakePoster();
}

// Recycles done (may be null) first, to take the lock only once: threads that post contend for it.
bool GDQ::TakeDue(Node* done, Delivery& delivery, uint32_t& waitMs) {
  const ScopedLock lock(m_listMutex);
  if (done != nullptr) Recycle(done);
  Node* node = m_messages.Head();
  if (node == nullptr) {
    waitMs = kForever;
    return false;
  }
  const uint64_t now = node->m_dueMs != 0 ? NowMs() : 0;  // a plain post needs no clock
  // Due only once the clock has passed m_dueMs; otherwise it could be up to a millisecond early.
  if (node->m_dueMs != 0 && node->m_dueMs >= now) {
    waitMs = static_cast<uint32_t>(node->m_dueMs - now);
    return false;
  }
  m_messages.Unlink(node);
  WakePosterIfFew();
  delivery.m_target = node->m_target;
  delivery.m_name = node->m_name.Str();
  delivery.m_args = node->m_args.Str();
  if (node->m_periodMs == 0) {
    delivery.m_oneShot = node;
    return true;
  }
  delivery.m_heldName.Set(node->m_name);
  delivery.m_heldArgs.Set(node->m_args);
  // Counts from now, not from m_dueMs: after a delay, missed deliveries are not made up.
  node->m_dueMs = now + node->m_periodMs;
  m_messages.AddOrdered(node);
  return true;
}

// False: the arguments cannot be parsed, which is reported. A periodic message is reported each time.
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
