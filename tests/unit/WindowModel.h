// Tests the window with a network that loses, duplicates, delays and reorders, and a service that blocks,
// forgets clients and restarts.
#pragma once

#include "client/SendWindow.h"
#include "tests/unit/AckModel.h"
#include "tests/unit/Choices.h"

class WindowModel {
 public:
  explicit WindowModel(Choices choices) : m_choices(choices) {}

  void Run() {
    ASSERT_TRUE(m_window.Open(256, 7));
    while (m_choices.AreLeft() && !::testing::Test::HasFailure()) Step();
    m_blockedUntilUs = 0;  // no choices are left, so there are no more faults
    const uint64_t end = m_nowUs + 60 * kSecond;
    while (m_window.Held() != 0 && !::testing::Test::HasFailure()) {
      ASSERT_LT(m_nowUs, end);
      Pass(kMs);
    }
    EXPECT_EQ(m_appended, m_lastRun.size() + m_refusable);
    EXPECT_TRUE(m_losses != 0 || m_refusable == m_window.Refused());
  }

 private:
  static constexpr uint64_t kMs = 1000, kSecond = 1000000;
  // For a call that ran under a name older than the last loss: it may run again under a newer one.
  static constexpr unsigned kMayRunAgain = UINT_MAX;
  static constexpr size_t kWithName = 8 + Velk::SendWindow::kNameLength;  // "WithAck NAME"

  struct Path {
    std::multimap<uint64_t, std::string> due;

    // Texts with the same time keep their order.
    void Put(Choices& choices, uint64_t nowUs, const std::string& text) {
      const unsigned fate = choices.Below(16);
      if (fate == 1) return;
      due.emplace(nowUs + kMs, text);
      if (fate == 2) due.emplace(nowUs + choices.Below(3000) * kMs, text);
      if (fate == 3) {
        due.erase(std::prev(due.upper_bound(nowUs + kMs)));
        due.emplace(nowUs + choices.Below(20) * kMs, text);
      }
    }
  };

  void Step() {
    const unsigned step = m_choices.Below(64);
    if (step == 0) Kill();
    if (step == 1) m_blockedUntilUs = m_nowUs + m_choices.Below(5000) * kMs;
    if (step == 2) Evict();
    if (step == 3) Pass(m_choices.Below(256) * 4 * kMs);
    if (step == 4) m_window.Rewind(m_nowUs);  // joined again
    if (step == 5) m_toClient.due.emplace(m_nowUs, m_choices.Bytes(m_choices.Below(40)).c_str());
    if (step >= 6 && step < 24) Append();
    Pass(m_choices.Below(4) * kMs);
  }

  void Append() {
    const bool isRefusable = m_choices.Below(8) == 0;
    const std::string text = (isRefusable ? "Unknown " : "Call ") + std::to_string(m_appended);
    if (!m_window.Append(text.data(), static_cast<unsigned>(text.size()))) return;
    m_isRefusable.push_back(isRefusable);
    m_refusable += isRefusable;
    ++m_appended;
  }

  void Kill() {
    ++m_losses;
    m_service.clients.clear();
    m_queue.clear();
  }
  void Evict() {
    if (m_service.clients.empty()) return;
    ++m_losses;
    m_service.clients.erase(m_service.clients.begin());
  }

  void Pass(uint64_t us) {
    const uint64_t end = m_nowUs + us;
    do {
      m_nowUs = std::min(end, m_nowUs + kMs);
      Serve();
      Take(m_toClient, [&](const std::string& text) { m_window.TakeAnswer(text.c_str(), m_nowUs); });
      if (m_nowUs >= m_window.DueUs()) m_window.OnSilence(m_nowUs);
      Send();
      CheckHeld();
    } while (m_nowUs < end);
  }

  void Send() {
    Velk::SendWindow::Piece piece;
    const uint32_t before = m_window.Held();
    for (unsigned sent = 0; m_window.Next(&piece); ++sent) {
      ASSERT_LT(sent, Velk::SendWindow::kMostUnanswered);
      ASSERT_LE(piece.headLength, Velk::SendWindow::kMaxHead);
      m_born.emplace(std::string(piece.head, kWithName), m_losses);
      m_toService.Put(m_choices, m_nowUs,
                      std::string(piece.head, piece.headLength) + std::string(piece.text, piece.length));
      m_window.Sent(m_nowUs);
    }
    ASSERT_EQ(before, m_window.Held());
  }

  template <typename Action>
  void Take(Path& path, Action action) {
    while (!path.due.empty() && path.due.begin()->first <= m_nowUs) {
      const std::string text = path.due.begin()->second;
      path.due.erase(path.due.begin());
      action(text);
    }
  }

  void Serve() {
    Take(m_toService, [&](const std::string& text) { m_queue.push_back(text); });
    if (m_nowUs < m_blockedUntilUs) return;
    for (const std::string& text : std::exchange(m_queue, {})) {
      Lines ran;
      m_toClient.Put(m_choices, m_nowUs, m_service.Take(text, &ran));
      // The service may have forgotten a name older than the last loss. A late copy then runs again.
      const bool isOld = m_born[text.substr(0, kWithName)] != m_losses;
      for (const std::string& call : ran) NoteRun(static_cast<size_t>(std::stoul(call.substr(5))), isOld);
    }
  }

  // Each call's first run is in order. A call runs again only after the service forgot the client.
  void NoteRun(size_t call, bool isOld) {
    size_t next = m_lastRun.empty() ? 0 : m_lastRun.rbegin()->first + 1;
    while (next < m_isRefusable.size() && m_isRefusable[next]) ++next;
    ASSERT_LE(call, next);
    if (call != next) {
      ASSERT_TRUE(m_lastRun[call] != m_losses || isOld) << call;
    }
    m_lastRun[call] = isOld ? kMayRunAgain : m_losses;
  }

  // Calls that are no longer held must have been run or refused.
  void CheckHeld() {
    const size_t done = m_appended - m_window.Held();
    for (; m_checked < done; ++m_checked)
      ASSERT_TRUE(m_isRefusable[m_checked] || m_lastRun.count(m_checked) != 0) << m_checked;
  }

  Choices m_choices;
  Velk::SendWindow m_window;
  AckModel m_service;
  std::vector<std::string> m_queue;  // received, not yet run
  Path m_toService, m_toClient;
  uint64_t m_nowUs = kSecond;
  uint64_t m_blockedUntilUs = 0;
  unsigned m_losses = 0;  // how often the service forgot a client
  unsigned m_appended = 0, m_refusable = 0;
  std::vector<bool> m_isRefusable;
  std::map<std::string, unsigned> m_born;  // by name: m_losses when first sent
  std::map<size_t, unsigned> m_lastRun;    // by call: m_losses at its last run, or kMayRunAgain
  size_t m_checked = 0;
};
