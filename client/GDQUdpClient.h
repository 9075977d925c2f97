// Transport layer: the peer's side of the call channel over UDP. Logs only while Open() resolves a name.
#pragma once

#include <pthread.h>
#include <sys/types.h>

#include <atomic>
#include <cstdint>

#include "client/HeldLines.h"
#include "client/PeerSocket.h"
#include "common/GDQUdpBase.h"
#include "common/IDailyLog2.h"
#include "common/InetAddress2.h"

namespace Velk {

// Calls a service that runs GDQUdpSrv, and hears what others call there:
//
//   GDQUdpClient client;
//   client.Open("127.0.0.1", "password");
//   (client << "LogMsg" << 2 << "net" << "link down\n").CallObj();   // or client.Log(Warning, "net", ...)
//   LogPrinter::Instance()->SetLogToGDQUdp(&client);                 // or the whole log of the program
//   client.Flush(5000);
//
// The service answers nothing but nonces, so a reliable client has two sockets: what the mouth sends, the
// service relays to the ear, which is a receipt. A tag of blanks and tabs behind each call tells which one.
// Reliable means: a call is sent again until receipted, and held until the service is known to have lived on
// for kSettleMs, the time in which it runs what it took; if it restarts before, the call is sent again. So
// each confirmed call was run at least once. Repeats happen; without them (of each call's copies the last
// that was receipted), calls stand in the order in which they were sent, as long as the service runs and the
// path does not swap two calls and then their receipts back again, which nobody here could see.
//
// Absence, restarts and losses are what it is made for: it joins and joins again by itself, and holds calls
// meanwhile, as many as Options::heldLines. Somebody has to give it time for that: an event loop that calls
// Process() whenever Descriptor() is readable, or StartThread(). Without either it works in passing in
// SendMsg(), Flush() and WaitForAnswer() only.
//
// Any thread may call any operation but Open() and Close(), which need the object to themselves. A child
// process after fork(2) may use it too: it gets sockets and a thread of its own with its first call, and
// leaves what its parent holds to its parent. It has to ask for Descriptor() again.
class GDQUdpClient final : public GDQUdpBase {
 public:
  static constexpr unsigned kTagLength = 40;
  static constexpr unsigned kMaxTaggedText = kMaxText - kTagLength;  // longest call text, in bytes: 1394
  static constexpr unsigned short kDefaultPort = 11001;
  static constexpr unsigned kForever = 0xFFFFFFFF;
  static constexpr unsigned kSettleMs = 200;

  // Two ranges of PeerSocket::kPorts local ports.
  static constexpr unsigned short kMouthPort = 11101;
  static constexpr unsigned short kEarPort = kMouthPort + PeerSocket::kPorts;

  struct Options {
    bool reliable = true;  // else each call is sent once
    bool listen = false;   // hear what others call, and notice a restart while idle
    // How long SendMsg() waits when no more can be held; 0: not at all. For ever means that a program stands
    // still until the service comes.
    unsigned waitMs = kForever;
    // Calls held, of 256 bytes each on average; up to kMostHeld. Also bounds the rate of confirmed calls:
    // heldLines in each kSettleMs.
    unsigned heldLines = 2048;
  };
  static constexpr unsigned kMostHeld = 16384;

  enum class State {
    NotJoined,  // nobody answers (yet)
    Joined,     // as far as we know. Without an ear: a nonce came. With one: what we send is relayed
    Refused,    // the service answers but relays nothing: most likely the wrong password. Keeps trying
  };

  // name and args are the handler's for the length of the call.
  using CallHandler = void (*)(const char* name, const char* args, void* user);
  using ProbeHandler = void (*)(unsigned id, unsigned micros, void* user);

  GDQUdpClient();
  ~GDQUdpClient() override;

  // Starts to join the service at "host" or "host:port" and returns at once, whether or not it is there.
  // Both texts are copied. A host name is resolved here and never again. False with errno: EINVAL the
  // port is no number from 1 to 65535, EHOSTUNREACH no such host, ENOMEM, or what creating descriptors failed
  // with.
  bool Open(const char* server, const char* password, const Options& options);
  bool Open(const char* server, const char* password) { return Open(server, password, Options()); }

  // Leaves the service, which then relays nothing to us any more, and forgets what is held: Flush() before.
  void Close();

  // Sends or holds one call text. False with errno: EMSGSIZE longer than kMaxTaggedText, EAGAIN no room
  // within Options::waitMs, EBADF not open. Calls no handler.
  bool SendMsg(const char* text) override;

  // As Call(), but cuts a "LogMsg" that is too long into several lines, as Log() does.
  void Call(const char* name, const char* args) override;

  // Sends text as one line of the log, or as several where it does not fit a datagram, each cut between
  // UTF-8 characters; a line feed is added to what has none at its end. errno as for SendMsg(); EMSGSIZE
  // means the module. False: the line, or its end, is not on its way.
  bool Log(ELogMessageType type, const char* module, const char* text);

  // Waits until all calls are confirmed (sent, when not reliable). Returns how many are not after timeoutMs;
  // they are still tried. Calls no handler.
  unsigned Flush(unsigned timeoutMs);

  // How many calls are held; and how many of them the service has not yet been heard to take.
  unsigned Held();
  unsigned Unreceipted();

  State GetState();
  // Waits at most timeoutMs until the state is another than NotJoined, and returns it. Calls no handler.
  State WaitForAnswer(unsigned timeoutMs);
  // How often the state became Joined since Open(): more than once means interruptions.
  unsigned Joins();
  // Microseconds from the latest CONN to its nonce; 0: there was none yet.
  unsigned HandshakeMicros();

  // For poll(2) or epoll(7): readable when Process() has something to do, timed work included. -1: not open.
  int Descriptor();
  // Does what is due and returns: never waits. Runs handlers and listeners, on the calling thread and without
  // a lock, so they may call any operation but Open() and Close().
  void Process();
  // Calls Process() whenever needed, on a thread that ends with Close(). errno when false.
  bool StartThread();

  // What others call, with Options::listen; after those added with AddListener(). Set before Open().
  void SetCallHandler(CallHandler handler, void* user) { m_onCall = {handler, user}; }

  // Sends a call without a name, which the service relays and then ignores, but for a trace line. Returns its
  // id, or 0 when it cannot be sent: not joined, or no ear (neither reliable nor listen). The handler, set
  // before Open(), gets the microseconds until its receipt came; if that is lost it is not called. At most
  // the latest 16 probes are waited for.
  unsigned Probe();
  void SetProbeHandler(ProbeHandler handler, void* user) { m_onProbe = {handler, user}; }

 private:
  // Closed, CONN sent, first probe sent, in use, or refused and waiting to try again.
  enum class Phase { Closed, Connecting, Proving, Joined, Resting };

  struct SentProbe {
    uint32_t id = 0;
    bool isAsked = false;  // by Probe(), and not yet told
    uint64_t sentUs = 0;
    uint64_t receiptUs = 0;  // 0: none yet
  };

  template <typename Function>
  struct Handler {
    Function function = nullptr;
    void* user = nullptr;
  };

  static constexpr unsigned kProbes = 16;

  template <typename Value>
  Value Locked(const Value& value);
  bool Start();
  void Enter();
  void ForgetParent();
  void AfterFork();
  void CloseDescriptors();
  void StopThread();
  static void* RunThread(void* self);
  bool DeliverCall();
  bool DeliverProbeAnswer();

  // All others are called with the mutex held.
  bool HasEar() const { return m_options.reliable || m_options.listen; }
  void StartJoin();
  void Rewind();
  void SendConnects();
  void HandleNonce(PeerSocket& socket, const char* nonce);
  void SendProof();
  void BecomeJoined();
  void GiveUpProof();

  void Service();
  void ReadSocket(PeerSocket& socket);
  void HandleDatagram(PeerSocket& socket, const char* packet, unsigned size);
  void HandleReceipt(uint64_t tag, const char* text, unsigned length);
  void HandleLineReceipt(uint32_t number, const char* text, unsigned length);
  void HandleProbeReceipt(uint32_t number);
  void NoteAnswer(uint64_t sentUs, uint64_t receiptUs);

  void Pump();
  uint64_t TagBits(uint32_t number) const;
  bool SendText(const char* text, unsigned length, uint64_t tagBits);
  void SendProbe(bool isAsked);
  void GoBack(uint32_t window);

  bool IsWaiting() const;
  uint64_t DueUs() const;
  void OnDue();
  void Arm();
  bool Append(const char* text, unsigned length);
  template <typename Condition>
  void WorkUntil(unsigned timeoutMs, Condition done);
  // Gives up the mutex while it waits for datagrams, at most until endUs. False: that has passed.
  bool WaitUnlocked(uint64_t endUs);

  pthread_mutex_t m_mutex;
  std::atomic<pid_t> m_process{0};  // whose sockets these are; 0: closed
  InetAddress2 m_server{0, 0};
  char* m_password = nullptr;
  Options m_options;
  Handler<CallHandler> m_onCall;
  Handler<ProbeHandler> m_onProbe;

  // All times are microseconds of the monotonic clock.
  int m_epoll = -1;
  int m_timer = -1;
  uint64_t m_armedUs = 0;  // when m_timer fires
  PeerSocket m_mouth{kMouthPort};
  PeerSocket m_ear{kEarPort};

  Phase m_phase = Phase::Closed;
  State m_state = State::NotJoined;
  bool m_isBlocked = false;  // the socket takes no more just now
  unsigned m_failedProofs = 0;
  unsigned m_joins = 0;
  unsigned m_handshakeUs = 0;
  uint64_t m_joinedUs = 0;

  // First() <= receipted <= next <= End(): receipted but not settled; sent in this pass; still to be sent.
  HeldLines m_lines;
  uint32_t m_receipted = 0;
  uint32_t m_next = 0;
  uint32_t m_window = 0;  // most calls sent but not receipted
  uint64_t m_client = 0;  // random bits of our tags
  uint32_t m_pass = 0;    // receipts of an earlier one do not count
  HeldLines m_calls;      // heard, not yet delivered

  SentProbe m_probes[kProbes];
  uint32_t m_probeId = 0;
  uint32_t m_receiptedProbe = 0;  // the latest
  bool m_hasProbeAnswer = false;  // some probe's answer is still to be told

  unsigned m_answerMs = 0;  // how long to wait for an answer at the first try, then twice as long
  unsigned m_tries = 0;
  uint64_t m_sinceUs = 0;  // when the present waiting began
  uint64_t m_heardUs = 0;  // the latest receipt

  pthread_t m_thread{};
  bool m_hasThread = false;
  std::atomic<bool> m_endThread{false};
};

}  // namespace Velk
