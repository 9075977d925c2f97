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
// Two mutexes, never held together and neither during a dispatch: one guards messages and spares, the other
// the wake-up of the thread.
class GDQ : public IGenericDispatchQueue, private AppThread2 {
 public:
  // Most arguments of a message; one with more does not parse.
  static constexpr unsigned kMaxArgs = 32;

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
    uint32_t Count() const { return m_nodes.m_count; }
    uint32_t PostCount() const { return m_postCount; }  // those due at 0

    // Takes the node over and puts it behind all that are due no later.
    void AddOrdered(Node* node);
    // Unlinks the first node of the target with this id. The caller owns it; null: there is none.
    Node* Remove(unsigned int timerId, IGenericDispatchTarget* target);
    // The same whatever the id.
    Node* RemoveByTarget(IGenericDispatchTarget* target);
    void Unlink(Node* node);
    void DeleteAll();

   private:
    NodeList m_nodes;
    Node* m_lastPost = nullptr;  // last node that is due at 0, null: none
    uint32_t m_postCount = 0;
  };

 private:
  struct Delivery;

  void Enqueue(uint64_t dueMs, uint32_t periodMs, uint32_t timerId, IGenericDispatchTarget* target,
               const char* name, const char* args);
  void WaitForRoomLocked();
  void PauseLocked();
  bool HasCaughtUpLocked() const;
  bool MayHoldBackPoster();
  void TellRoomLocked();
  Node* TakeSpareLocked();
  void RecycleLocked(Node* node) { m_free.InsertAfter(nullptr, node); }
  void WakeLocked();
  void WaitForPost(uint32_t waitMs);
  void DeliverDue(ArgsParser& parser, uint32_t& waitMs);
  bool TakeDue(Node* done, Delivery& delivery, uint32_t& waitMs);
  bool Deliver(const Delivery& delivery, ArgsParser& parser);

  Mutex m_listMutex;  // guards m_free and m_messages
  NodeList m_free;
  MessageList m_messages;
  Mutex m_wakeMutex;  // guards the last two flags; posters also read the first one without it
  pthread_cond_t m_wakeCondition;
  // With m_listMutex: fewer posts are pending, or the thread has ended.
  pthread_cond_t m_room;
  pthread_cond_t m_caughtUp;
  uint32_t m_waitingPosters = 0;         // on m_room
  uint32_t m_pausingPosters = 0;         // on m_caughtUp
  bool m_mayPause = true;                // the last pause was short, or no post was left since
  std::atomic<bool> m_signalled{false};  // there was a post since the thread last woke
  bool m_keepSignalled = false;          // the thread is to end and must not sleep again

 public:
  // Written by the owner before Run(). Not owned; null: failures are dropped silently.
  IErrorReport* m_errorReporter = nullptr;

  // Most plain posts pending at once, 0: no limit. Written by the owner before Run(). At the limit Post waits
  // while the thread runs, until half of them are done; on the queue's own thread, so in handlers, it never
  // waits. Timers do not count.
  uint32_t m_maxPosts = 0;

  // Plain posts pending at which Post pauses until an eighth of them is left, but at most 10 ms; 0: it never
  // does. Written by the owner before Run(). For a poster that waits for input of its own: it is faster than
  // the thread and would fall asleep over each message, and to wake it costs more than to post; while it
  // pauses its input gathers. A slow thread holds nobody back: after a pause of over 1 ms there is none until
  // no post is left.
  uint32_t m_pausePosts = 0;
};

}  // namespace Velk
