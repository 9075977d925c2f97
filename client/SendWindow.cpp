#include "client/SendWindow.h"

#include <string.h>

#include "common/TextOps.h"

namespace Velk {

namespace {

constexpr uint64_t kMs = 1000;
constexpr unsigned kFirstWindow = 4;
constexpr unsigned kLeastTimeoutMs = 30;
constexpr unsigned kMostTimeoutMs = 1000;
constexpr unsigned kMostDoublings = 6;
constexpr unsigned kRenameSilences = 16;  // 12 to 16 s, longer than an answer can be delayed

}  // namespace

bool SendWindow::Open(unsigned lines, uint64_t seed) {
  if (!m_lines.Open(lines)) return false;
  m_seed = seed;
  m_isOnce = false;
  m_refused = m_forgotten = m_sentOnce = 0;
  m_timeoutMs = kLeastTimeoutMs * 2;
  m_window = kFirstWindow;
  Rename();
  return true;
}

void SendWindow::SetOnce(bool isOnce) {
  if (isOnce == m_isOnce) return;
  m_isOnce = isOnce;
  Rename();
}

// Starts a new name at number 1. All held calls are due again.
void SendWindow::Rename() {
  // splitmix64: similar seeds give unrelated names.
  m_seed += 0x9E3779B97F4A7C15;
  uint64_t bits = m_seed;
  bits = (bits ^ bits >> 30) * 0xBF58476D1CE4E5B9;
  bits = (bits ^ bits >> 27) * 0x94D049BB133111EB;
  bits ^= bits >> 31;
  memcpy(m_head, "WithAck ", 8);
  for (char* out = m_head + 8; out != m_head + 8 + kNameLength; bits /= 36)
    *out++ = "0123456789abcdefghijklmnopqrstuvwxyz"[bits % 36];
  m_head[8 + kNameLength] = ' ';
  m_next = m_sent = m_lines.First();
  m_number = 1;
  m_seenRefused = 0;
  m_silences = 0;
  m_isFresh = true;
  m_hasHole = false;
}

SendWindow::Piece SendWindow::WithHead(uint64_t number, const char* text, unsigned length) {
  unsigned size = kMaxHead - kMaxNumber - 1;
  size += TextOps::PutNum(m_head + size, number);
  m_head[size++] = ' ';
  return {m_head, size, text, length};
}

bool SendWindow::Next(Piece* piece) {
  if (m_next == m_lines.End()) return false;
  const char* const text = m_lines.Text(m_next);
  const unsigned length = m_lines.At(m_next).length;
  if (m_isOnce) {
    *piece = {m_head, 0, text, length};
    return true;
  }
  const uint32_t unanswered = m_next - m_lines.First();
  // The first call is sent alone: once it is acknowledged, LAST 0 can only mean that the service forgot us.
  if (unanswered >= (m_isFresh ? 1 : m_window)) return false;
  *piece = WithHead(m_number + unanswered, text, length);
  return true;
}

void SendWindow::Sent(uint64_t nowUs) {
  if (m_next == m_lines.First()) m_sinceUs = nowUs;
  m_lines.At(m_next).sentUs = nowUs;
  if (m_isOnce && m_lines.At(m_next).length != 0) ++m_sentOnce;  // pings do not count
  if (static_cast<int32_t>(++m_next - m_sent) > 0) m_sent = m_next;
  if (m_isOnce) m_lines.RemoveFirst();
}

void SendWindow::Rewind(uint64_t nowUs) {
  m_next = m_lines.First();
  m_sinceUs = nowUs;
}

namespace {

// Moves *text past a blank and a number.
bool TakeNumber(const char** text, uint64_t* number) {
  if (**text != ' ') return false;
  const char* const digits = *text + 1;
  *text = TextOps::GetNum(digits, number);
  return *text != digits;
}

}  // namespace

bool SendWindow::TakeAnswer(const char* text, uint64_t nowUs) {
  uint64_t last, asked, refused;
  if (strncmp(text, "Ack ", 4) != 0 || strncmp(text + 4, m_head + 8, kNameLength) != 0) return false;
  text += 4 + kNameLength;
  if (!TakeNumber(&text, &last) || !TakeNumber(&text, &asked) || !TakeNumber(&text, &refused)) return false;
  m_sinceUs = nowUs;
  if (m_isOnce) return true;
  if (last == 0 && !m_isFresh) {
    ++m_forgotten;
    Rename();
    return true;
  }
  TakeUpTo(last, asked, nowUs);
  if (refused > m_seenRefused) {
    m_refused += static_cast<unsigned>(refused - m_seenRefused);
    m_seenRefused = refused;
  }
  return true;
}

void SendWindow::TakeUpTo(uint64_t last, uint64_t asked, uint64_t nowUs) {
  const uint64_t answered = last + 1 - m_number;
  // LAST fell, so answered wraps: a later answer has overtaken this one. If this persists, the service forgot
  // us, but LAST is not 0: it then ran a late copy of our first call.
  if (answered > m_sent - m_lines.First()) {
    if (m_silences >= kRenameSilences) Rename();
    return;
  }
  if (answered != 0) {
    m_isFresh = false;
    m_silences = 0;
    if (asked == last)
      LearnAnswerTime(nowUs - m_lines.At(m_lines.First() + static_cast<uint32_t>(answered) - 1).sentUs);
    for (uint64_t i = 0; i < answered; ++i) m_lines.RemoveFirst();
    m_number = last + 1;
    if (static_cast<int32_t>(m_lines.First() - m_next) > 0) m_next = m_lines.First();
    if (m_window < kMostUnanswered) ++m_window;
  }
  // A gap: the calls after it were not run, so retransmit all from there. Only once per gap: the datagrams
  // that are still in flight all report the same one.
  if (asked <= last || Held() == 0 || (m_hasHole && m_hole == m_lines.First())) return;
  m_hasHole = true;
  m_hole = m_next = m_lines.First();
  m_window = m_window / 2 > kFirstWindow ? m_window / 2 : kFirstWindow;
}

// The timeout is two round trips. It rises at once and falls slowly.
void SendWindow::LearnAnswerTime(uint64_t tripUs) {
  const uint64_t tripMs = tripUs / kMs * 2;
  m_timeoutMs -= m_timeoutMs / 8;
  if (m_timeoutMs < tripMs)
    m_timeoutMs = tripMs < kMostTimeoutMs ? static_cast<unsigned>(tripMs) : kMostTimeoutMs;
  if (m_timeoutMs < kLeastTimeoutMs) m_timeoutMs = kLeastTimeoutMs;
}

uint64_t SendWindow::DueUs() const {
  if (m_isOnce || m_next == m_lines.First()) return kNever;
  const unsigned waitMs = m_timeoutMs << (m_silences < kMostDoublings ? m_silences : kMostDoublings);
  return m_sinceUs + (waitMs < kMostTimeoutMs ? waitMs : kMostTimeoutMs) * kMs;
}

void SendWindow::OnSilence(uint64_t nowUs) {
  ++m_silences;
  m_window = kFirstWindow;
  Rewind(nowUs);
}

}  // namespace Velk
