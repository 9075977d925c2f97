// Dispatch layer: the queue and the thread that works it off.
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

// Delivers messages in the order of their due times, and those of equal due time in the order of posting, one
// at a time on its own thread. A message that ran is kept as a spare with its two buffers, so a steady flow
// allocates nothing; spares are never given back.
//
// Two mutexes, never held together and neither during a dispatch: one for messages and spares, the other for
// the wake-up of the thread.
class GDQ : public IGenericDispatchQueue, private AppThread2 {
 public:
  // Most arguments of a message; one with more does not parse.
  static constexpr unsigned kMaxArgs = 32;

  // A wait without a time limit.
  static constexpr uint32_t kForever = 0xFFFFFFFF;

  // See AppThread2.
  GDQ(int, int, const char* threadName, bool autoDelete);

  // Starts the thread. Set the error reporter and attach the targets first.
  bool Run();
  // Wakes the thread and waits until it has ended; not from a handler. What is pending waits for Run().
  void Stop();

  void PostTimer(unsigned int timerId, unsigned long periodMs, IGenericDispatchTarget* target,
                 const char* name, const char* args) override;
  void CancelTimer(unsigned int timerId, IGenericDispatchTarget* target) override;
  void CancelAllMessages(IGenericDispatchTarget* target) override;
  void Post(IGenericDispatchTarget* target, const char* name, const char* args) override;

  // The thread's body.
  void Driver() override;

  // Drops what is pending without delivering or reporting it. Does not stop the thread.
  ~GDQ() override;

  // Holds a poster back: waits until fewer than limit plain posts are pending, waitMs milliseconds have
  // passed, or the thread does not run. Returns how many are pending, at once when waitMs is 0. One caller at
  // a time, and not from a handler, which would wait for itself.
  uint32_t WaitForFewerPosts(uint32_t limit, uint32_t waitMs);

  // One message. Owned by the list that it is in, and by the thread while it is in none.
  struct Node {
    Node* m_prev = nullptr;
    Node* m_next = nullptr;
    uint64_t m_dueMs = 0;                        // Timer64x time, 0 for a plain post
    uint32_t m_periodMs = 0;                     // 0: one-shot
    uint32_t m_timerId = 0;                      // 0 for a plain post
    IGenericDispatchTarget* m_target = nullptr;  // not owned
    RefString m_name{256, 256};
    RefString m_args{256, 256};
  };

  // Links nodes and deletes those that it has left.
  class NodeList {
   public:
    NodeList() = default;
    NodeList(const NodeList&) = delete;
    NodeList& operator=(const NodeList&) = delete;
    ~NodeList() { DeleteAll(); }

    // after null: in front of all.
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
    uint32_t PostCount() const { return m_postCount; }  // those due at 0

    // Takes the node over and puts it after all that are due no later.
    void AddOrdered(Node* node);
    // Unlinks the first node of the target with this id. The caller owns it; null: there is none.
    Node* Remove(unsigned int timerId, IGenericDispatchTarget* target);
    // The same whatever the id.
    Node* RemoveByTarget(IGenericDispatchTarget* target);
    void Unlink(Node* node);
    void DeleteAll();

   private:
    NodeList m_nodes;
    uint32_t m_postCount = 0;
  };

 protected:
  // The clock of due times.
  virtual uint64_t NowMs() const;
  // Waits for a post, with wakeMutex released meanwhile. False: waitMs milliseconds have passed.
  virtual bool Sleep(Mutex& wakeMutex, uint32_t waitMs) REQUIRES(wakeMutex);

 private:
  struct Delivery;

  void Enqueue(uint64_t dueMs, uint32_t periodMs, uint32_t timerId, IGenericDispatchTarget* target,
               const char* name, const char* args);
  Node* TakeSpare() REQUIRES(m_listMutex);
  void Recycle(Node* node) REQUIRES(m_listMutex) { m_free.InsertAfter(nullptr, node); }
  void Wake() REQUIRES(m_wakeMutex);
  bool AwaitFewerPosts(uint32_t limit, const timespec* deadline);
  void TellPoster() REQUIRES(m_listMutex);
  void WaitForPost(uint32_t waitMs);
  void DeliverDue(ArgsParser& parser, uint32_t& waitMs);
  bool TakeDue(Node* done, Delivery& delivery, uint32_t& waitMs);
  bool Deliver(const Delivery& delivery, ArgsParser& parser);

  Mutex m_listMutex;
  NodeList m_free GUARDED_BY(m_listMutex);
  MessageList m_messages GUARDED_BY(m_listMutex);
  uint32_t m_posterLimit GUARDED_BY(m_listMutex) = 0;  // of the poster that waits, 0: none does
  bool m_isResting GUARDED_BY(m_listMutex) = false;    // the thread left messages that are due
  pthread_cond_t m_posterCondition;  // with m_listMutex: few posts, a resting thread, or one that has ended

  Mutex m_wakeMutex;
  pthread_cond_t m_wakeCondition;
  // There was a post since the thread last woke. Written with m_wakeMutex held; atomic because Enqueue()
  // reads it without.
  std::atomic<bool> m_signalled{false};
  bool m_keepSignalled GUARDED_BY(m_wakeMutex) = false;  // the thread is to end and must not sleep again

 public:
  // Written by the owner before Run(). Not owned; null: failures are dropped silently.
  IErrorReport* m_errorReporter = nullptr;
};

}  // namespace Velk
