#include "common/GDQ.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "common/IGenericDispatchTarget.h"
#include "tests/unit/WaitFor.h"

namespace {

using Lines = std::vector<std::string>;

// What a target or a reporter was told, readable from the test's thread.
class Record {
 public:
  void Add(const std::string& line) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_lines.push_back(line);
  }
  Lines Get() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_lines;
  }
  bool WaitForCount(size_t count) const {
    return WaitFor([&] { return Get().size() >= count; });
  }

 private:
  mutable std::mutex m_mutex;
  Lines m_lines;
};

class Target : public Velk::IGenericDispatchTarget, public Record {
 public:
  bool Dispatch(const char* name, const Velk::IArgsList* args) override {
    std::string line = name;
    for (unsigned i = 0; i < args->GetCount(); ++i) line += std::string(" ") + args->GetItem(i)->AsStr();
    Add(line);
    if (m_handler) m_handler(name, args);
    return line != "Refused";
  }

  std::function<void(const char* name, const Velk::IArgsList* args)> m_handler;
};

class Reporter final : public Velk::IGenericDispatchQueue::IErrorReport, public Record {
 public:
  void OnParseError(Velk::IGenericDispatchTarget*, const char* name, const char* args) override {
    Add(std::string("parse ") + name + "(" + args + ")");
  }
  void OnDispatchError(Velk::IGenericDispatchTarget*, const char* name, const char* args) override {
    Add(std::string("dispatch ") + name + "(" + args + ")");
  }
  void OnPostError(Velk::IGenericDispatchTarget*, const char*, const char*) override { Add("post"); }
};

// A queue that is stopped before what its thread uses goes.
class Queue : public Velk::GDQ {
 public:
  Queue() : GDQ(0, 0, "queue", false) {}
  ~Queue() override { Stop(); }
};

constexpr unsigned long kNever = 3600 * 1000;

}  // namespace

TEST(GDQ, ListIsStablySortedByDueTime) {
  using Node = Velk::GDQ::Node;
  std::mt19937 random(3);
  Velk::GDQ::MessageList list;
  std::vector<Node*> model;
  Target targets[3];
  for (int step = 0; step < 20000; ++step) {
    Velk::IGenericDispatchTarget* target = &targets[random() % 3];
    const auto id = static_cast<unsigned>(random() % 3);
    const auto operation = random() % (model.size() > 40 ? 4 : 8);
    if (operation < 3) {
      const auto expected = std::find_if(model.begin(), model.end(), [&](const Node* node) {
        return operation == 0 || (node->m_target == target && (operation == 1 || node->m_timerId == id));
      });
      Node* removed = operation == 0   ? list.Head()
                      : operation == 1 ? list.RemoveByTarget(target)
                                       : list.Remove(id, target);
      if (operation == 0 && removed != nullptr) list.Unlink(removed);
      ASSERT_EQ(expected != model.end() ? *expected : nullptr, removed);
      if (removed != nullptr) model.erase(expected);
      delete removed;
    } else {
      auto* node = new Node;
      node->m_dueMs = random() % 2 == 0 ? 0 : random() % 8;
      node->m_timerId = id;
      node->m_target = target;
      list.AddOrdered(node);
      const auto later = [](const Node* a, const Node* b) { return a->m_dueMs < b->m_dueMs; };
      model.insert(std::upper_bound(model.begin(), model.end(), node, later), node);
    }
    ASSERT_EQ(model.size(), list.Count());
    const Node* previous = nullptr;
    const Node* node = list.Head();
    for (const Node* expected : model) {
      ASSERT_EQ(expected, node);
      ASSERT_EQ(previous, node->m_prev);
      previous = node;
      node = node->m_next;
    }
    ASSERT_EQ(nullptr, node);
  }
}

TEST(GDQ, DeliversPostsThenTimersInOrder) {
  Target target;
  Queue queue;
  queue.PostTimer(1, 30, &target, "Later", nullptr);
  queue.PostTimer(2, 0, &target, "Now", "1");
  queue.PostTimer(3, 0, &target, "Now", "2");
  queue.Post(&target, "Post", "'a b' c");
  queue.Post(&target, nullptr, nullptr);
  queue.Post(&target, "Post", std::string(1000, 'x').c_str());
  queue.PostTimer(4, kNever, &target, "Never", nullptr);
  ASSERT_TRUE(queue.Run());
  ASSERT_TRUE(target.WaitForCount(6));
  EXPECT_EQ((Lines{"Post a b c", "", "Post " + std::string(1000, 'x'), "Now 1", "Now 2", "Later"}),
            target.Get());
}

TEST(GDQ, CancelsTheEarliestMatchOnly) {
  Target target;
  Target other;
  Queue queue;
  for (const char* name : {"A", "B", "C"}) queue.Post(&target, name, nullptr);
  queue.PostTimer(7, 0, &target, "Timer", "1");
  queue.PostTimer(7, 0, &target, "Timer", "2");
  queue.Post(&other, "Other", nullptr);
  queue.PostTimer(7, 0, &other, "Timer", "3");
  queue.CancelTimer(0, &target);  // a plain post
  queue.CancelTimer(7, &target);
  queue.CancelTimer(8, &target);
  queue.CancelAllMessages(&other);
  queue.Post(&target, "D", nullptr);
  ASSERT_TRUE(queue.Run());
  ASSERT_TRUE(target.WaitForCount(4));
  EXPECT_EQ((Lines{"B", "C", "D", "Timer 2"}), target.Get());
  EXPECT_EQ(Lines{}, other.Get());
}

TEST(GDQ, HandlerMayCancelItsOwnTimerAndReuseItsNode) {
  Target target;
  int ticks = 0;
  Lines seenAfterwards;
  Queue queue;
  target.m_handler = [&](const char* name, const Velk::IArgsList* args) {
    if (std::string(name) != "Tick" || ++ticks < 3) return;
    queue.CancelTimer(5, &target);
    // Takes the node of the timer that is being dispatched.
    queue.Post(&target, "Other", "other");
    seenAfterwards = {name, args->GetItem(0)->AsStr()};
    // Long after the timer would have come again.
    queue.PostTimer(6, 50, &target, "End", nullptr);
  };
  queue.PostTimer(5, 5, &target, "Tick", "tock");
  ASSERT_TRUE(queue.Run());
  ASSERT_TRUE(target.WaitForCount(6));
  queue.Stop();
  EXPECT_EQ((Lines{"Tick", "tock"}), seenAfterwards);
  Lines lines = target.Get();
  lines.resize(6);
  EXPECT_EQ((Lines{"Tick tock", "Tick tock", "Tick tock", "Other other", "End", "End"}), lines);
}

TEST(GDQ, ReportsWhatFailsAndGoesOn) {
  Target target;
  Reporter reporter;
  Queue queue;
  queue.m_errorReporter = &reporter;
  queue.Post(&target, "Refused", nullptr);
  queue.Post(&target, "Bad", "'open");
  queue.Post(&target, "Many",
             "1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 20 21 22 23 24 25 26 27 28 29 30 31 32 33");
  queue.Post(nullptr, "Nobody", "x");
  queue.Post(&target, "Good", nullptr);
  ASSERT_TRUE(queue.Run());
  ASSERT_TRUE(target.WaitForCount(2));
  EXPECT_EQ((Lines{"Refused", "Good"}), target.Get());
  const Lines reports = reporter.Get();
  ASSERT_EQ(4u, reports.size());
  EXPECT_EQ("dispatch Refused()", reports[0]);
  EXPECT_EQ("parse Bad('open)", reports[1]);
  EXPECT_EQ(0u, reports[2].find("parse Many(1 2 3"));
  EXPECT_EQ("dispatch Nobody(x)", reports[3]);
}

TEST(GDQ, UnparsableTimerStaysArmedAndKeepsItsTexts) {
  Target target;
  Reporter reporter;
  Queue queue;
  queue.m_errorReporter = &reporter;
  queue.PostTimer(1, 2, &target, "Bad", "`open");
  ASSERT_TRUE(queue.Run());
  // Were its node among the spares, one of these would overwrite it or loop the lists.
  for (int i = 1; i <= 50; ++i) {
    queue.Post(&target, "Good", std::to_string(i).c_str());
    ASSERT_TRUE(reporter.WaitForCount(static_cast<size_t>(i)));
  }
  ASSERT_TRUE(target.WaitForCount(50));
  queue.CancelTimer(1, &target);
  for (const std::string& line : reporter.Get()) EXPECT_EQ("parse Bad(`open)", line);
  const Lines lines = target.Get();
  for (int i = 1; i <= 50; ++i) EXPECT_EQ("Good " + std::to_string(i), lines[static_cast<size_t>(i - 1)]);
}

TEST(GDQ, StopWakesTheThreadAndKeepsWhatIsPending) {
  Target target;
  {
    Queue queue;
    for (size_t round = 0; round < 50; ++round) {
      ASSERT_TRUE(queue.Run());
      ASSERT_TRUE(target.WaitForCount(round));
      queue.Stop();  // asleep, or about to
      queue.Post(&target, "Pending", nullptr);
    }
  }
  // Destruction drops the last one.
  EXPECT_EQ(49u, target.Get().size());
}

TEST(GDQ, LimitHoldsPostersBackButNeverItsOwnThread) {
  constexpr int kPosts = 200;
  std::atomic<int> posted{0};
  int done = 0;
  int mostAhead = 0;
  Target target;
  Target slow;
  Queue queue;
  queue.m_maxPosts = 8;
  target.m_handler = [&](const char* name, const Velk::IArgsList*) {
    if (name[0] == 'E') return;
    if (done == 0) usleep(20000);  // time in which an unlimited poster would run away
    mostAhead = std::max(mostAhead, posted.load() - done++);
    for (int i = 0; i < 3; ++i) queue.Post(&target, "Echo", nullptr);
  };
  ASSERT_TRUE(queue.Run());
  std::thread poster([&] {
    for (int i = 0; i < kPosts; ++i, ++posted) queue.Post(&target, "Peer", nullptr);
  });
  EXPECT_TRUE(target.WaitForCount(kPosts * 4));
  poster.join();
  EXPECT_LE(mostAhead, 8 + 1);  // and the one that is being handled

  // A poster that waits must not wait for a thread that has ended.
  slow.m_handler = [](const char*, const Velk::IArgsList*) { usleep(1000); };
  std::thread late([&] {
    for (int i = 0; i < kPosts; ++i) queue.Post(&slow, "Late", nullptr);
  });
  queue.Stop();
  late.join();
}

TEST(GDQ, LimitIsNoTrapForGarbage) {
  Target target;
  Reporter reporter;
  Queue queue;
  queue.m_errorReporter = &reporter;
  queue.m_maxPosts = 8;
  target.m_handler = [](const char*, const Velk::IArgsList*) { usleep(20000); };  // the poster gets ahead
  ASSERT_TRUE(queue.Run());
  usleep(20000);  // asleep until the next post
  std::thread poster([&] {
    queue.Post(&target, "Slow", nullptr);
    for (int i = 0; i < 50; ++i) queue.Post(&target, "Bad", "'open");
  });
  EXPECT_TRUE(reporter.WaitForCount(40));  // the rest may wait for the next post
  queue.Stop();
  poster.join();
}

// Many posters, timers and cancels at once; each poster's messages arrive complete and in its order.
TEST(GDQ, KeepsOrderPerPoster) {
  constexpr int kPosters = 4;
  constexpr int kPosts = 500;
  Target target;
  Target noise;
  Queue queue;
  noise.m_handler = [&](const char*, const Velk::IArgsList*) { queue.Post(&noise, "Echo", "'of a timer'"); };
  ASSERT_TRUE(queue.Run());
  std::vector<std::thread> posters;
  for (int poster = 0; poster < kPosters; ++poster) {
    posters.emplace_back([&queue, &target, &noise, poster] {
      const std::string name = "Poster" + std::to_string(poster);
      for (int i = 0; i < kPosts; ++i) {
        queue.Post(&target, name.c_str(), std::to_string(i).c_str());
        if (i % 16 == 0) queue.PostTimer(9, 1, &noise, "Noise", "`with some text`");
        if (i % 16 == 8) queue.CancelTimer(9, &noise);
        if (i % 64 == 63) queue.CancelAllMessages(&noise);
      }
    });
  }
  for (std::thread& poster : posters) poster.join();
  ASSERT_TRUE(target.WaitForCount(kPosters * kPosts));
  queue.Stop();
  int next[kPosters] = {};
  for (const std::string& line : target.Get()) {
    const auto poster = static_cast<size_t>(line.at(6) - '0');
    EXPECT_EQ(std::to_string(next[poster]++), line.substr(8));
  }
}
