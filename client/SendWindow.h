// Client layer: which calls to send when, so that each is run once and in order.
#pragma once

#include <cstdint>

#include "client/HeldLines.h"

namespace Velk {

// Numbers the calls of a client, keeps each until the service says that it ran it, and decides what to
// retransmit. Knows no socket, clock or lock: the owner passes times in, in microseconds of any clock that
// does not go back, and sends what Next() gives. One thread at a time.
//
// A call travels as "WithAck CLIENT NUMBER call". The service runs number after number and answers each
// datagram with "Ack CLIENT LAST ASKED REFUSED": all up to LAST were run. So a retransmitted call is not run
// twice by the same process, and one that arrives after a gap is not run at all. A service that has restarted
// does not know CLIENT: what it had not acknowledged goes out again, under a new name.
class SendWindow {
 public:
  static constexpr unsigned kNameLength = 12;
  static constexpr unsigned kMaxNumber = 18;                                  // digits
  static constexpr unsigned kMaxHead = 8 + kNameLength + 1 + kMaxNumber + 1;  // "WithAck NAME NUMBER "
  static constexpr unsigned kMostUnanswered = 64;  // datagrams that a default receive buffer has room for
  static constexpr uint64_t kNever = UINT64_MAX;

  // Room for so many calls, see HeldLines. seed: random bits, of which the names are made. False: no memory.
  bool Open(unsigned lines, uint64_t seed);
  void Close() { m_lines.Close(); }

  // Holds one call. An empty one is a ping: the service runs nothing, and answers. False: no room.
  bool Append(const char* text, unsigned length) { return m_lines.Append(text, length); }

  // Calls not yet acknowledged; with SetOnce(true), not yet sent.
  unsigned Held() const { return m_lines.End() - m_lines.First(); }
  // Acknowledged calls that the service refused, as it does not know them or their arguments.
  unsigned Refused() const { return m_refused; }
  // How often the service did not know us any more: each time, what it keeps in memory was lost.
  unsigned Forgotten() const { return m_forgotten; }
  // Calls that were sent without waiting for an answer.
  unsigned SentOnce() const { return m_sentOnce; }

  // On: from now on each call is sent bare, once, and not held after that.
  void SetOnce(bool isOnce);
  bool IsOnce() const { return m_isOnce; }

  struct Piece {
    const char* head;  // not NUL-terminated
    unsigned headLength;
    const char* text;
    unsigned length;
  };
  // What to send now, until the next call of any operation. It stays due until Sent(). False: nothing.
  bool Next(Piece* piece);
  void Sent(uint64_t nowUs);
  // A ping that is not held, to find out whether the service answers at all.
  Piece Probe() { return WithHead(1, "", 0); }

  bool IsAllSent() const { return m_next == m_lines.End(); }

  // Takes a text that the service sent to us. False: it is no answer, or not to us.
  bool TakeAnswer(const char* text, uint64_t nowUs);

  // When the wait for an answer ends; kNever: none is due. OnSilence() then makes the first calls due again,
  // and doubles the wait for the next answer, up to a second.
  uint64_t DueUs() const;
  void OnSilence(uint64_t nowUs);
  unsigned Silences() const { return m_silences; }  // since a call was acknowledged
  // How long an answer took, of whatever kind, so that the wait for the next one is long enough.
  void LearnAnswerTime(uint64_t tripUs);

  // We joined again: what was sent and not answered is due again.
  void Rewind(uint64_t nowUs);

 private:
  void Rename();
  Piece WithHead(uint64_t number, const char* text, unsigned length);
  void TakeUpTo(uint64_t last, uint64_t asked, uint64_t nowUs);

  HeldLines m_lines;
  uint32_t m_next = 0;    // First() <= next <= sent <= End(): the next to send
  uint32_t m_sent = 0;    // sent under this name up to here, perhaps before we went back
  uint64_t m_number = 1;  // that First() has under this name
  uint32_t m_hole = 0;    // the call that we went back to ...
  bool m_hasHole = false;
  unsigned m_window = 0;  // most calls sent and not answered
  bool m_isFresh = true;  // the service has not answered to this name
  bool m_isOnce = false;
  unsigned m_silences = 0;
  unsigned m_answerMs = 0;  // how long to wait for an answer, before any silence
  uint64_t m_sinceUs = 0;   // when the present wait began
  uint64_t m_seed = 0;
  uint64_t m_seenRefused = 0;  // under this name
  unsigned m_refused = 0;
  unsigned m_forgotten = 0;
  unsigned m_sentOnce = 0;
  char m_head[kMaxHead] = {};  // begins with what all calls under this name begin with
};

}  // namespace Velk
