// Client layer: decides what to send and when, and what to send again.
#pragma once

#include <cstdint>

#include "client/HeldLines.h"

namespace Velk {

// Numbers a client's calls, holds each until the service acknowledges it, and decides what to retransmit. Has
// no socket, clock or lock: the caller sends what Next() gives and passes the time in microseconds of a
// monotonic clock. One thread at a time.
//
// A call is sent as "WithAck CLIENT NUMBER call". The service runs the numbers in order, each once, and none
// after a gap. It answers each datagram with "Ack CLIENT LAST ASKED REFUSED": all numbers up to LAST are
// done, REFUSED of them refused, and ASKED is the datagram's NUMBER. A restarted service does not know
// CLIENT; unacknowledged calls are then retransmitted under a new name.
class SendWindow {
 public:
  static constexpr unsigned kNameLength = 12;
  static constexpr unsigned kMaxNumber = 18;                                  // digits
  static constexpr unsigned kMaxHead = 8 + kNameLength + 1 + kMaxNumber + 1;  // "WithAck NAME NUMBER "
  static constexpr unsigned kMostUnanswered = 64;  // a default receive buffer holds that many of the longest
  static constexpr uint64_t kNever = UINT64_MAX;

  // Makes room for this many calls, see HeldLines. seed: random bits for the client names. False: out of
  // memory.
  bool Open(unsigned lines, uint64_t seed);
  void Close() { m_lines.Close(); }

  // Holds one call. An empty one is a ping: the service only acknowledges it. False: no room.
  bool Append(const char* text, unsigned length) { return m_lines.Append(text, length); }

  // Calls not yet acknowledged; after SetOnce(true), not yet sent.
  unsigned Held() const { return m_lines.End() - m_lines.First(); }
  // Acknowledged calls that the service refused: unknown name or wrong arguments.
  unsigned Refused() const { return m_refused; }
  // How many times the service had forgotten us, normally because it restarted (and lost its recent lines).
  unsigned Forgotten() const { return m_forgotten; }
  // Calls that were sent without waiting for an acknowledgement.
  unsigned SentOnce() const { return m_sentOnce; }

  // true: each call is sent once, without "WithAck", and then dropped.
  void SetOnce(bool isOnce);
  bool IsOnce() const { return m_isOnce; }

  struct Piece {
    const char* head;  // not NUL-terminated
    unsigned headLength;
    const char* text;
    unsigned length;
  };
  // Gives the next datagram to send; the same one again if Sent() was not called. Its pointers are valid
  // until the next operation. False: nothing is due.
  bool Next(Piece* piece);
  void Sent(uint64_t nowUs);
  // A ping that is not held. Shows whether the service answers at all.
  Piece Probe() { return WithHead(1, "", 0); }

  bool IsAllSent() const { return m_next == m_lines.End(); }

  // Handles a text from the service. False: it is not an "Ack" for this client.
  bool TakeAnswer(const char* text, uint64_t nowUs);

  // When the wait for an acknowledgement times out; kNever: none is expected. At that time call OnSilence(),
  // which makes the unacknowledged calls due again and doubles the timeout, up to one second.
  uint64_t DueUs() const;
  void OnSilence(uint64_t nowUs);
  unsigned Silences() const { return m_silences; }  // timeouts since a call was last acknowledged
  // Adapts the timeout to a measured round trip, of a call or of the handshake.
  void LearnAnswerTime(uint64_t tripUs);

  // Makes all unacknowledged calls due again, after a rejoin.
  void Rewind(uint64_t nowUs);

 private:
  void Rename();
  Piece WithHead(uint64_t number, const char* text, unsigned length);
  void TakeUpTo(uint64_t last, uint64_t asked, uint64_t nowUs);

  HeldLines m_lines;
  uint32_t m_next = 0;    // the next to send; First() <= m_next <= m_sent <= End()
  uint32_t m_sent = 0;    // end of the calls sent at least once under this name
  uint64_t m_number = 1;  // NUMBER of First() under this name
  uint32_t m_hole = 0;    // the call that was last retransmitted because of a gap
  bool m_hasHole = false;
  unsigned m_window = 0;  // maximum number of calls in flight
  bool m_isFresh = true;  // no call acknowledged yet under this name
  bool m_isOnce = false;
  unsigned m_silences = 0;
  unsigned m_timeoutMs = 0;  // before any doubling
  uint64_t m_sinceUs = 0;    // when the timeout started
  uint64_t m_seed = 0;
  uint64_t m_seenRefused = 0;  // the last REFUSED under this name
  unsigned m_refused = 0;
  unsigned m_forgotten = 0;
  unsigned m_sentOnce = 0;
  char m_head[kMaxHead] = {};  // "WithAck NAME ", then the number of the last piece
};

}  // namespace Velk
