// Compares the queue with a sorted vector. Choices decide what a handler does and what happens instead of a
// sleep: a post, a timer, a cancel, a change of the clock. The queue runs on the caller's thread.
#pragma once

#include "common/GDQ.h"
#include "common/IGenericDispatchTarget.h"
#include "tests/unit/Choices.h"

class QueueModel final : Velk::IGenericDispatchQueue::IErrorReport {
 public:
  explicit QueueModel(Choices choices) : m_choices(choices) {
    m_queue.m_errorReporter = this;
    for (Target& target : m_targets) target.m_model = this;
  }

  void Run() {
    EXPECT_FALSE(m_queue.Run());  // starts no thread, but the queue counts as running until stopped
    m_queue.Driver();
    EXPECT_FALSE(m_choices.AreLeft());
  }

 private:
  struct Queue final : Velk::GDQ {
    explicit Queue(QueueModel& model) : GDQ(0, 0, "queue", false), m_model(model) {}
    bool StartThread() override { return false; }
    uint64_t NowMs() const override { return m_model.m_nowMs; }
    bool Sleep(Velk::Mutex& wakeMutex, uint32_t waitMs) override REQUIRES(wakeMutex) {
      wakeMutex.Unlock();
      const bool isWoken = m_model.Sleep(waitMs);
      wakeMutex.Lock();
      return isWoken;
    }
    QueueModel& m_model;
  };

  struct Message {
    uint64_t dueMs;
    uint32_t periodMs;
    unsigned id;
    Velk::IGenericDispatchTarget* target;
    std::string name;
    const char* args;
  };

  struct Target final : Velk::IGenericDispatchTarget {
    bool Dispatch(const char* name, const Velk::IArgsList* args) override {
      m_model->Deliver(this, name);
      m_model->Act();  // may reuse the node of the timer being dispatched
      EXPECT_EQ(m_model->m_delivered, name);
      EXPECT_TRUE(args->GetCount() == 0 || args->GetItem(1)->AsStr() == std::string("two"));
      return this != &m_model->m_targets[0];
    }
    QueueModel* m_model = nullptr;
  };

  void OnParseError(Velk::IGenericDispatchTarget* target, const char* name, const char* args) override {
    EXPECT_TRUE(args == std::string(kUnclosed) || args == std::string(kTooMany)) << args;
    Deliver(target, name);
    // After this the queue repeats its last wait, unless a post has come.
    m_waitsAgain = !m_isSignalled;
    m_isSignalled = false;
  }
  void OnDispatchError(Velk::IGenericDispatchTarget* target, const char* name, const char* args) override {
    if (target == nullptr) Deliver(target, name);
    EXPECT_TRUE(target == nullptr || target == &m_targets[0]);
    EXPECT_EQ(m_delivered, name);
    EXPECT_EQ(m_deliveredArgs, args);
  }
  void OnPostError(Velk::IGenericDispatchTarget*, const char*, const char*) override { FAIL(); }

  bool Sleep(uint32_t waitMs) {
    if (!m_waitsAgain) {
      m_waitMs = m_pending.empty() ? Queue::kForever : m_pending[0].dueMs - m_nowMs;
      EXPECT_TRUE(m_pending.empty() || m_pending[0].dueMs >= m_nowMs) << "due, but not delivered";
    }
    EXPECT_EQ(m_waitMs, waitMs);
    const uint64_t deadlineMs = m_nowMs + waitMs;
    m_isSignalled = false;
    Act();
    if (!m_choices.AreLeft()) m_queue.Stop();
    const bool timesOut = waitMs != Queue::kForever && !m_isSignalled && m_choices.Below(2) == 0;
    m_waitsAgain = !timesOut && !m_isSignalled;
    m_isSignalled = false;
    if (timesOut) m_nowMs = std::max(m_nowMs, deadlineMs);
    return !timesOut;
  }

  void Add(const Message& message) {
    const auto sooner = [](const Message& a, const Message& b) { return a.dueMs < b.dueMs; };
    m_pending.insert(std::upper_bound(m_pending.begin(), m_pending.end(), message, sooner), message);
  }

  void Deliver(const Velk::IGenericDispatchTarget* target, const char* name) {
    m_waitsAgain = false;
    ASSERT_FALSE(m_pending.empty());
    Message message = m_pending[0];
    m_pending.erase(m_pending.begin());
    ASSERT_EQ(message.name, name);
    ASSERT_EQ(message.target, target);
    ASSERT_LT(message.dueMs, m_nowMs);
    m_delivered = name;
    m_deliveredArgs = message.args != nullptr ? message.args : "";
    message.dueMs = m_nowMs + message.periodMs;
    if (message.periodMs != 0) Add(message);
  }

  void Act() {
    for (unsigned n = m_choices.Below(4); n != 0; --n) ActOnce();
    const auto posts =
        std::count_if(m_pending.begin(), m_pending.end(), [](auto& m) { return m.dueMs == 0; });
    EXPECT_EQ(posts, m_queue.WaitForFewerPosts(1, 0));
  }

  void ActOnce() {
    const char* const kArgs[] = {"", "one 'two'", nullptr, kUnclosed, kTooMany};
    const unsigned operation = m_choices.Below(8);
    const unsigned which = m_choices.Below(4);
    Velk::IGenericDispatchTarget* target = which != 3 ? &m_targets[which] : nullptr;
    Message message{0, 0, 0, target, std::to_string(++m_count), kArgs[m_choices.Below(5)]};
    if (m_choices.Below(16) == 0) message.name.insert(0, 300, 'x');
    if (operation == 6) m_nowMs -= m_choices.Below(20);
    if (operation == 7) m_nowMs += m_choices.Below(40);
    if (operation == 4 || operation == 5) Cancel(target, operation == 4);
    if (operation >= 4) return;
    if (operation >= 2) {
      message.id = m_choices.Below(3);
      message.periodMs = m_choices.Below(2) * m_choices.Below(20);
      message.dueMs = m_nowMs + message.periodMs;
      m_queue.PostTimer(message.id, message.periodMs, target, message.name.c_str(), message.args);
    } else {
      m_queue.Post(target, message.name.c_str(), message.args);
    }
    m_isSignalled = true;
    Add(message);
  }

  // Cancels all the target's messages, or its next one with a random id; posts have id 0.
  void Cancel(Velk::IGenericDispatchTarget* target, bool all) {
    const unsigned id = all ? 0 : m_choices.Below(3);
    if (all) m_queue.CancelAllMessages(target);
    if (!all) m_queue.CancelTimer(id, target);
    for (auto at = m_pending.begin(); at != m_pending.end();) {
      const bool matches = at->target == target && (all || at->id == id);
      at = matches ? m_pending.erase(at) : at + 1;
      if (matches && !all) return;
    }
  }

  static constexpr char kUnclosed[] = "'open";
  static constexpr char kTooMany[] =
      "1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 20 21 22 23 24 25 26 27 28 29 30 31 32 33";

  Choices m_choices;
  std::vector<Message> m_pending;
  std::string m_delivered;
  std::string m_deliveredArgs;
  unsigned m_count = 0;
  uint64_t m_nowMs = 1000000;
  uint64_t m_waitMs = 0;
  bool m_waitsAgain = true;  // the next wait is as long as the last one
  bool m_isSignalled = false;
  Target m_targets[3];
  Queue m_queue{*this};
};
