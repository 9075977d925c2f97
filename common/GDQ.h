// Dispatch layer: the message queue and its worker thread.
#pragma once

#include <pthread.h>

#include <atomic>
#include <cstdint>

#include "common/AppThread2.h"
#include "common/ArgsParser.h"
#include "common/IGenericDispatchQueue.h"
#include "common/Mutex.h"
#include "common/RefString.h"

namespace Velk {

// Delivers messages one at a time on its worker thread: plain posts first, in the order posted, then timers
// in order of due time. A delivered message is kept as a spare with its two buffers, so a steady flow
// allocates nothing. Spares live as long as the queue.
//
// Two mutexes: one guards messages and spares, the other the wake-up of the worker thread. They are never
// held together, and neither is held during a dispatch.
class GDQ : public IGenericDispatchQueue, private AppThread2 {
 public:
  // A message with more arguments cannot be parsed.
  static constexpr unsigned kMaxArgs = 32;

  // A wait without a time limit.
  static constexpr uint32_t kForever = 0xFFFFFFFF;

  // See AppThread2.
  GDQ(int, int, const char* threadName, bool autoDelete);

  // Starts the worker thread. Set the error reporter and attach the targets, see GDOTimerBase, first.
  bool Run();
  // Wakes the worker thread and waits until it has ended. Must not be called from a handler. Pending messages
  // stay for the next Run().
  void Stop();

  void PostTimer(unsigned int timerId, unsigned long periodMs, IGenericDispatchTarget* target,
                 const char* name, const char* args) override;
  void CancelTimer(unsigned int timerId, IGenericDispatchTarget* target) override;
  void CancelAllMessages(IGenericDispatchTarget* target) override;
  void Post(IGenericDispatchTarget* target, const char* name, const char* args) override;

  // The worker thread's body.
  void Driver() override;

  // Drops pending messages without reporting them. Does not stop the worker thread.
  ~GDQ() override;

  // Blocks until fewer than limit plain posts (from Post()) are pending, waitMs milliseconds have
  // passed, or the worker thread is not running. Returns the number of pending plain posts, at once if waitMs
  // is 0. One caller at a time, and not from a handler, which would wait for itself.
  uint32_t WaitForFewerPosts(uint32_t limit, uint32_t waitMs);

  // One message. Owned by the list that it is in, or by the worker thread while in none.
  struct Node {
    Node* m_prev = nullptr;
    Node* m_next = nullptr;
    uint64_t m_dueMs = 0;                        // Timer64x time; 0 for a plain post
    uint32_t m_periodMs = 0;                     // 0: one-shot
    uint32_t m_timerId = 0;                      // 0 for a plain post
    IGenericDispatchTarget* m_target = nullptr;  // not owned
    RefString m_name{256, 256};
    RefString m_args{256, 256};
  };

  // A doubly linked list that owns its nodes.
  class NodeList {
   public:
    NodeList() = default;
    NodeList(const NodeList&) = delete;
    NodeList& operator=(const NodeList&) = delete;
    ~NodeList() { DeleteAll(); }

    // If after is null, inserts at the head.
    void InsertAfter(Node* after, Node* node);
    void Unlink(Node* node);
    void DeleteAll();

    Node* m_head = nullptr;
    Node* m_tail = nullptr;
    uint32_t m_count = 0;
  };

  // Pending messages in ascending order of due time.
  class MessageList {
   public:
    Node* Head() const { return m_nodes.m_head; }
    uint32_t PostCount() const { return m_postCount; }  // plain posts

    // Takes ownership of the node and inserts it after all that are due at the same time or earlier.
    void AddOrdered(Node* node);
    // Unlinks the target's first node with this id and passes it to the caller. Null: there is none.
    Node* Remove(unsigned int timerId, IGenericDispatchTarget* target);
    // The same for any id.
    Node* RemoveByTarget(IGenericDispatchTarget* target);
    void Unlink(Node* node);
    void DeleteAll();

   private:
    NodeList m_nodes;
    uint32_t m_postCount = 0;
  };

 protected:
  // The clock for due times. Tests override it.
  virtual uint64_t NowMs() const;
  // Waits for a post, releasing wakeMutex meanwhile. False: waitMs milliseconds have passed.
  virtual bool Sleep(Mutex& wakeMutex, uint32_t waitMs) REQUIRES(wakeMutex);

 private:
  struct Delivery;

  void Enqueue(uint64_t dueMs, uint32_t periodMs, uint32_t timerId, IGenericDispatchTarget* target,
               const char* name, const char* args);
  Node* TakeSpare() REQUIRES(m_listMutex);
  void Recycle(Node* node) REQUIRES(m_listMutex) { m_free.InsertAfter(nullptr, node); }
  void Wake() REQUIRES(m_wakeMutex);
  bool WaitUnlessResting(uint32_t limit, const timespec* deadline, uint32_t& count);
  void WakePoster() REQUIRES(m_listMutex);
  void WakePosterIfFew() REQUIRES(m_listMutex);
  void WaitForPost(uint32_t waitMs);
  void DeliverDue(ArgsParser& parser, uint32_t& waitMs);
  bool TakeDue(Node* done, Delivery& delivery, uint32_t& waitMs);
  bool Deliver(const Delivery& delivery, ArgsParser& parser);

  Mutex m_listMutex;
  NodeList m_free GUARDED_BY(m_listMutex);
  MessageList m_messages GUARDED_BY(m_listMutex);
  uint32_t m_posterLimit GUARDED_BY(m_listMutex) = 0;  // limit of WaitForFewerPosts(); 0: not waiting
  // Set if DeliverDue() stopped at a message that cannot be parsed: the worker may sleep with others due.
  bool m_isResting GUARDED_BY(m_listMutex) = false;
  pthread_cond_t m_posterCondition;  // with m_listMutex: few posts are left, or the worker rests or ended

  Mutex m_wakeMutex;
  pthread_cond_t m_wakeCondition;
  // A post has come since the worker thread last woke. Written with m_wakeMutex held; atomic because
  // Enqueue() reads it unlocked.
  std::atomic<bool> m_signalled{false};
  bool m_keepSignalled GUARDED_BY(m_wakeMutex) = false;  // Stop() was called: no sleep until Run()

 public:
  // Set it before Run(). Not owned; null: failures are not reported.
  IErrorReport* m_errorReporter = nullptr;
};

}  // namespace Velk
