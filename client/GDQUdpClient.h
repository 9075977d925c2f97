// Client layer: the peer's side of the call channel over UDP. Logs only while Open() resolves a name.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstdint>

#include "client/LogCall.h"
#include "client/PeerSocket.h"
#include "client/SendWindow.h"
#include "common/GDQUdpBase.h"
#include "common/IDailyLog2.h"
#include "common/InetAddress2.h"
#include "common/Mutex.h"
#include "common/ServiceNames.h"

namespace Velk {

// Calls a service that runs GDQUdpSrv, and hears what others call there:
//
//   GDQUdpClient client;
//   client.Open("127.0.0.1", "password");
//   (client << "LogMsg" << 2 << "net" << "link down\n").CallObj();   // or client.Log(Warning, "net", ...)
//   LogPrinter::Instance()->SetLogToGDQUdp(&client);                 // or the whole log of the program
//   client.Flush(5000);
//
// Holds each call until the service says that it has run it, see SendWindow: through losses, restarts and
// absence of the service every call is run, in order. A call is run twice only where the service ends between
// running and acknowledging it, or where it was only busy when we took it for Unanswered.
//
// Joins, and joins again, by itself. It needs time for that: an event loop calls Process() whenever
// Descriptor() is readable, or a ClientThread does. Without either it works only inside SendMsg() and
// Flush().
//
// Any thread may call any operation but Open() and Close(), which need the object to themselves. A forked
// child opens a client of its own: its parent's fails there with EPERM, and Close() only frees memory and
// descriptors. A thread that is cancelled in here releases its lock. A program may close our descriptors,
// not knowing them: what it opens in their place is left alone, and others take over, also as Descriptor().
class GDQUdpClient final : public GDQUdpBase {
 public:
  static constexpr unsigned kMaxCall = LogCall::kMost;  // longest call text, in bytes
  static constexpr unsigned short kDefaultPort = kServicePort;
  static constexpr unsigned short kFirstLocalPort = 11101;  // see PeerSocket
  static constexpr unsigned kForever = 0xFFFFFFFF;
  static constexpr unsigned kSettleMs = 200;  // see Process()

  struct Options {
    bool reliable = true;        // false: each call is sent once, without an answer
    bool listen = false;         // hear what others call; needs reliable, to notice a restart while idle
    unsigned waitMs = kForever;  // how long SendMsg() waits while no more calls can be held
    unsigned heldLines = 2048;   // calls held, of 256 bytes each on average
  };

  enum class State {
    NotJoined,  // no nonce came (yet)
    Joined,     // a nonce came, and nothing says that the service does not run what we send
    // Nonces come, but no acknowledgements: wrong password, blocked worker thread, or a service without
    // "WithAck". Where none has come in some 4 s since Open(), a reliable client sends each call once, bare,
    // until there is an answer.
    Unanswered,
  };

  struct Status {
    State state = State::NotJoined;
    unsigned held = 0;  // see SendWindow, for all four
    unsigned refused = 0;
    unsigned forgotten = 0;
    unsigned sentOnce = 0;
  };

  GDQUdpClient() = default;
  ~GDQUdpClient() override;

  // Starts to join the service at "host" or "host:port" and returns at once, whether or not it is there. Both
  // texts are copied. A host name is resolved here and never again. False with errno: EINVAL the port is no
  // number from 1 to 65535, EHOSTUNREACH no such host, ENOMEM, or what creating descriptors failed with.
  bool Open(const char* server, const char* password, const Options& options) NO_THREAD_SAFETY_ANALYSIS;
  bool Open(const char* server, const char* password) { return Open(server, password, Options()); }

  // Leaves the service, which then relays nothing to us any more, and forgets what is held: Flush() before.
  void Close() NO_THREAD_SAFETY_ANALYSIS;

  // Sends or holds one call text; an empty one is a ping of the whole road. False with errno: EMSGSIZE longer
  // than kMaxCall, EAGAIN no room within Options::waitMs, EBADF not open, EPERM see above.
  bool SendMsg(const char* text) override;

  // Cuts a "LogMsg" that is too long into several lines, as Log() does.
  void Call(const char* name, const char* args) override;

  // Sends text as one line of the log, or as several where it does not fit a datagram, see LogCall. errno as
  // for SendMsg(); EMSGSIZE means the module. False: the line, or its end, is not on its way.
  bool Log(ELogMessageType type, const char* module, const char* text);

  // Waits until every call is acknowledged; not reliable: sent. Returns how many are not after timeoutMs and
  // are still tried, plus those sent once since the last Flush() for want of answers. 1 in a forked child.
  unsigned Flush(unsigned timeoutMs);
  Status GetStatus();

  // For poll(2) or epoll(7): readable when Process() has something to do, timed work included. -1: not open.
  int Descriptor() const NO_THREAD_SAFETY_ANALYSIS { return IsUsable() ? m_readiness.Descriptor() : -1; }
  // Does what is due, without waiting. Hands what others called to the listeners, in order while one thread
  // does so; of a "WithAck" what is in it. A listener may call SendMsg(), Call(), Log() and GetStatus().
  // settleMs: before descriptors are opened again, for a thread beside the one that just closes them all.
  void Process(unsigned settleMs = 0);
  // Makes the descriptor readable until the next Process().
  void Wake();

 private:
  class Lock;

  bool IsUsable() const;
  void CloseAll() NO_THREAD_SAFETY_ANALYSIS;
  bool DeliverCall();

  bool IsFallback() const REQUIRES(m_mutex) { return m_options.reliable && m_window.IsOnce(); }
  void StartJoin(bool isAtOnce) REQUIRES(m_mutex);
  void Mend(bool isThorough, unsigned settleMs) REQUIRES(m_mutex);
  void SendConnect() REQUIRES(m_mutex);
  void TakeNonce(const char* nonce) REQUIRES(m_mutex);
  bool Advance() REQUIRES(m_mutex);
  bool ReadSocket() REQUIRES(m_mutex);
  void TakeDatagram(char* packet, unsigned size) REQUIRES(m_mutex);
  void NoteAnswer() REQUIRES(m_mutex);
  void SendDue() REQUIRES(m_mutex);
  bool Send(const SendWindow::Piece& piece) REQUIRES(m_mutex);
  uint64_t DueUs() const REQUIRES(m_mutex);
  void OnDue() REQUIRES(m_mutex);
  void OnSilence() REQUIRES(m_mutex);
  void Arm() REQUIRES(m_mutex);
  bool WaitUnlocked(uint64_t endUs) REQUIRES(m_mutex);

  Mutex m_mutex;
  int m_cancelState GUARDED_BY(m_mutex) = 0;  // of the thread that holds the mutex, to be restored
  std::atomic<pid_t> m_process{0};            // that opened it; 0: closed
  InetAddress2 m_server{0, 0};
  char* m_password = nullptr;
  Options m_options;
  Readiness m_readiness GUARDED_BY(m_mutex);

  // All times are microseconds of the monotonic clock.
  uint64_t m_armedUs GUARDED_BY(m_mutex) = 0;  // from when on m_readiness is readable
  PeerSocket m_socket GUARDED_BY(m_mutex){kFirstLocalPort, m_readiness};
  SendWindow m_window GUARDED_BY(m_mutex);
  HeldLines m_heard GUARDED_BY(m_mutex);  // calls of others, not yet delivered
  State m_state GUARDED_BY(m_mutex) = State::NotJoined;
  bool m_isJoined GUARDED_BY(m_mutex) = false;    // false: CONN was sent, and no nonce came yet
  bool m_isBlocked GUARDED_BY(m_mutex) = false;   // the socket takes no more just now
  bool m_isWoken GUARDED_BY(m_mutex) = false;     // see Wake()
  bool m_isAnswered GUARDED_BY(m_mutex) = false;  // there was an acknowledgement since Open()
  uint64_t m_startUs GUARDED_BY(m_mutex) = 0;     // when the present or latest join began
  uint64_t m_sinceUs GUARDED_BY(m_mutex) = 0;     // the latest CONN or nonce, or when the socket was full
  uint64_t m_heardUs GUARDED_BY(m_mutex) = 0;     // the latest acknowledgement
  unsigned m_connectMs GUARDED_BY(m_mutex) =
      0;  // how long to wait for a nonce; doubles until there is an acknowledgement
  unsigned m_connects GUARDED_BY(m_mutex) = 0;     // without a nonce
  unsigned m_forcedJoins GUARDED_BY(m_mutex) = 0;  // by silence
  unsigned m_toldOnce GUARDED_BY(m_mutex) = 0;     // of the window's SentOnce(): what Flush() has told
};

}  // namespace Velk
