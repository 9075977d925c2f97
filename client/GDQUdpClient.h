// Client layer: the peer's end of the UDP call channel. Logs nothing but Open()'s failure to resolve a name.
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

// Makes calls on a service that runs GDQUdpSrv, and receives the calls that it relays from other peers:
//
//   GDQUdpClient client;
//   client.Open("127.0.0.1", "password");
//   (client << "LogMsg" << 2 << "net" << "link down\n").CallObj();   // or client.Log(Warning, "net", ...)
//   LogPrinter::Instance()->SetLogToGDQUdp(&client);                 // or all log lines of the program
//   client.Flush(5000);
//
// Holds each call until the service acknowledges it, see SendWindow. Every call is run, in order, even if
// datagrams are lost or the service restarts or is down, but see Unanswered. A call is run twice only if,
// before its acknowledgement arrives, the service restarts or forgets us, or our state becomes Unanswered.
//
// Joins and rejoins by itself. For that, an event loop must call Process() whenever Descriptor() is readable,
// or a ClientThread must run. Without either, work is done only inside SendMsg() and Flush().
//
// Any thread may call any operation, but no other call may overlap Open() or Close(). A forked child
// must open its own client: operations on its parent's fail with EPERM, and Close() only frees memory and
// descriptors. A cancelled thread leaves no lock held. If the program closes our descriptors while no
// operation runs, files that reuse their numbers are not touched, new descriptors are opened, and
// Descriptor() changes.
class GDQUdpClient final : public GDQUdpBase {
 public:
  static constexpr unsigned kMaxCall = LogCall::kMost;  // longest call text in bytes
  static constexpr unsigned short kDefaultPort = kServicePort;
  static constexpr unsigned short kFirstLocalPort = 11101;  // see PeerSocket
  static constexpr unsigned kForever = 0xFFFFFFFF;
  static constexpr unsigned kSettleMs = 200;  // for Process()

  struct Options {
    bool reliable = true;        // false: each call is sent once and not acknowledged
    bool listen = false;         // receive relayed calls; if not reliable, a service restart may end that
    unsigned waitMs = kForever;  // how long SendMsg() blocks while there is no room for the call
    unsigned heldLines = 2048;   // room for this many calls of 256 bytes on average
  };

  enum class State {
    NotJoined,  // no nonce received yet, or no answer to the last few CONNs
    Joined,     // nonce received, and acknowledgements are not long overdue
    // Nonces arrive, but no acknowledgements: the password is wrong, the worker thread is blocked, or the
    // service does not know "WithAck". If our first call gets none within about 4 s, a reliable client
    // sends each call only once, without "WithAck", until one of its pings is acknowledged.
    Unanswered,
  };

  struct Status {
    State state = State::NotJoined;
    unsigned held = 0;  // this and the next three: see SendWindow
    unsigned refused = 0;
    unsigned forgotten = 0;
    unsigned sentOnce = 0;
  };

  GDQUdpClient() = default;
  ~GDQUdpClient() override;

  // Starts to join the service at "host" or "host:port" and returns at once, even if the service is down.
  // Resolving a host name may block; no other operation resolves names. Copies what it needs of both texts.
  // False with errno: EINVAL the port is not a number from 1 to 65535, EHOSTUNREACH no such host, ENOMEM, or
  // the error of the system call that creates a descriptor.
  bool Open(const char* server, const char* password, const Options& options) NO_THREAD_SAFETY_ANALYSIS;
  bool Open(const char* server, const char* password) { return Open(server, password, Options()); }

  // Leaves the service, which stops relaying to us. Drops the calls still held: call Flush() first.
  void Close() NO_THREAD_SAFETY_ANALYSIS;

  // Takes one call and sends it as soon as possible. An empty text is a ping: it runs nothing, but if sent as
  // "WithAck", the worker thread acknowledges it. False with errno: EMSGSIZE longer than kMaxCall, EAGAIN no
  // room within Options::waitMs, EBADF not open, EPERM forked child.
  bool SendMsg(const char* text) override;

  // Splits a "LogMsg" that is too long into several, as Log() does.
  void Call(const char* name, const char* args) override;

  // Logs text as one line, or as several if it does not fit a datagram, see LogCall. False: the line or its
  // tail was not accepted; errno as for SendMsg(), but EMSGSIZE means that the module is too long.
  bool Log(ELogMessageType type, const char* module, const char* text);

  // Waits until every call is acknowledged (if not reliable: sent), but at most timeoutMs. Returns the number
  // of calls still held, plus those since the last Flush() that were sent only once because the service did
  // not answer. Returns 1 in a forked child.
  unsigned Flush(unsigned timeoutMs);
  Status GetStatus();

  // For poll(2) or epoll(7): readable when Process() has work, timed work included. -1: no descriptor.
  int Descriptor() const NO_THREAD_SAFETY_ANALYSIS { return IsUsable() ? m_readiness.Descriptor() : -1; }
  // Does the work that is due and never blocks. Hands relayed calls, without their "WithAck", to the
  // listeners, in order as long as only one thread calls this. A listener may call SendMsg(),
  // Call(), Log() and GetStatus(). settleMs delays the opening of new descriptors after the program has
  // closed ours; pass kSettleMs if another thread may still be closing descriptors.
  void Process(unsigned settleMs = 0);
  // Makes the descriptor readable until the next Process().
  void Wake();

 private:
  class Lock;

  bool IsUsable() const;
  bool DeliverCall();

  bool IsFallback() const REQUIRES(m_mutex) { return m_options.reliable && m_window.IsOnce(); }
  void StartJoin(bool isAtOnce) REQUIRES(m_mutex);
  void ReplaceClosed(bool isThorough, unsigned settleMs) REQUIRES(m_mutex);
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
  int m_cancelState GUARDED_BY(m_mutex) = 0;  // of the mutex's holder, which restores it
  std::atomic<pid_t> m_process{0};            // the process that opened it; 0: closed
  InetAddress2 m_server{0, 0};
  char* m_password = nullptr;
  Options m_options;
  Readiness m_readiness GUARDED_BY(m_mutex);

  // All times are microseconds of the monotonic clock.
  uint64_t m_armedUs GUARDED_BY(m_mutex) = 0;  // the time set in m_readiness
  PeerSocket m_socket GUARDED_BY(m_mutex){kFirstLocalPort, m_readiness};
  SendWindow m_window GUARDED_BY(m_mutex);
  HeldLines m_relayed GUARDED_BY(m_mutex);  // relayed calls, not yet delivered
  State m_state GUARDED_BY(m_mutex) = State::NotJoined;
  bool m_isJoined GUARDED_BY(m_mutex) = false;    // false: waiting for a nonce
  bool m_isBlocked GUARDED_BY(m_mutex) = false;   // the socket's send buffer is full
  bool m_isWoken GUARDED_BY(m_mutex) = false;     // see Wake()
  bool m_isAnswered GUARDED_BY(m_mutex) = false;  // acknowledged at least once since Open()
  uint64_t m_startUs GUARDED_BY(m_mutex) = 0;     // start of the latest join
  uint64_t m_sinceUs GUARDED_BY(m_mutex) = 0;     // latest CONN, nonce, join start or failed send
  uint64_t m_heardUs GUARDED_BY(m_mutex) = 0;     // last ping sent or acknowledgement received
  // How long to wait for a nonce. Doubles, up to 1 s, each time it runs out; an acknowledgement resets it.
  unsigned m_connectMs GUARDED_BY(m_mutex) = 0;
  unsigned m_connects GUARDED_BY(m_mutex) = 0;      // CONNs without a nonce
  unsigned m_forcedJoins GUARDED_BY(m_mutex) = 0;   // rejoins because acknowledgements timed out
  unsigned m_reportedOnce GUARDED_BY(m_mutex) = 0;  // part of SentOnce() that Flush() has reported
};

}  // namespace Velk
