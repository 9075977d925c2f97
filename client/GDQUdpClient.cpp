#include "client/GDQUdpClient.h"

#include <errno.h>
#include <poll.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>
#include <sys/random.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>

#include "common/Timer64x.h"

namespace Velk {
namespace {

constexpr uint64_t kMs = 1000;
constexpr unsigned kConnectMs = 30;
constexpr unsigned kMostConnectMs = 1000;
constexpr unsigned kReopenConnects = 4;  // a new socket after as many CONNs: our address may have changed
constexpr unsigned kUnansweredSilences = 4;
constexpr unsigned kSilencesPerConnect = 32;  // at most this many timeouts between two CONNs
constexpr unsigned kFallbackSilences = 7;     // about 4 s
constexpr uint64_t kKeepAliveUs = 1000 * kMs;
constexpr uint64_t kTrustUs = 5000 * kMs;  // how long a nonce is trusted when calls are sent once
constexpr uint64_t kBlockedUs = 10 * kMs;
constexpr unsigned kHeardCalls = 1024;  // more than a default receive buffer holds
constexpr unsigned kReadsAtOnce = 256;

uint64_t EndUs(unsigned timeoutMs) {
  return timeoutMs == GDQUdpClient::kForever ? SendWindow::kNever : NowUs() + timeoutMs * kMs;
}

}  // namespace

// Holds the mutex with cancellation disabled: a thread cancelled in between would leave it locked.
class VELK_THREAD_ATTRIBUTE(scoped_lockable) GDQUdpClient::Lock {
 public:
  explicit Lock(GDQUdpClient* client) ACQUIRE(client->m_mutex) : m_client(client) {
    int state = PTHREAD_CANCEL_ENABLE;
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &state);
    m_client->m_mutex.Lock();
    m_client->m_cancelState = state;
  }
  ~Lock() RELEASE() {
    const int state = m_client->m_cancelState;
    m_client->m_mutex.Unlock();
    pthread_setcancelstate(state, nullptr);
  }

 private:
  GDQUdpClient* const m_client;
};

GDQUdpClient::~GDQUdpClient() {
  Close();
  free(m_password);
}

bool GDQUdpClient::Open(const char* server, const char* password, const Options& options) {
  Close();
  if (server == nullptr) server = "";
  const bool isPortOk = InetAddress2::HasValidPort(server);
  errno = 0;
  const bool hasHost = isPortOk && m_server.SetAddressString(server, kDefaultPort);
  if (!hasHost && errno != ENOMEM) errno = isPortOk ? EHOSTUNREACH : EINVAL;
  if (!hasHost) return false;
  free(m_password);
  m_password = strdup(password != nullptr ? password : "");
  m_options = options;
  uint64_t seed = 0;
  // Early at boot there are no random bits. Time and process id are unique enough for our name in "WithAck".
  if (getrandom(&seed, sizeof seed, GRND_NONBLOCK) < 0)
    seed = NowUs() << 20 ^ static_cast<uint64_t>(getpid());
  m_process = getpid();
  if (m_password == nullptr || !m_window.Open(options.heldLines, seed) ||
      (options.listen && !m_relayed.Open(kHeardCalls)) || !m_readiness.Open() ||
      // The network may come up later.
      (!m_socket.Open(m_server) && errno != ENETUNREACH && errno != EHOSTUNREACH)) {
    Close();
    return false;
  }
  m_armedUs = SendWindow::kNever;
  m_window.SetOnce(!options.reliable);
  m_state = State::NotJoined;
  m_isAnswered = false;
  m_forcedJoins = m_reportedOnce = 0;
  m_connectMs = kConnectMs;
  StartJoin(true);
  Arm();
  return true;
}

void GDQUdpClient::Close() {
  if (m_process == 0) return;
  if (m_process == getpid() && m_socket.HasCookie() && m_socket.IsOurs()) m_socket.SendConnect();
  // m_readiness first: a forked child shares the epoll set and must not remove the parent's socket from it.
  m_readiness.Close();
  m_socket.Close();
  m_window.Close();
  m_relayed.Close();
  m_process = 0;
}

bool GDQUdpClient::IsUsable() const {
  const pid_t owner = m_process;
  if (owner == getpid()) return true;
  errno = owner == 0 ? EBADF : EPERM;
  return false;
}

// If the program has closed our descriptors, opens new ones after settleMs. Call it before using them. Checks
// only the socket unless isThorough, which would cost each call 0.4 us.
void GDQUdpClient::ReplaceClosed(bool isThorough, unsigned settleMs) {
  if (m_readiness.Descriptor() >= 0) {
    if (m_socket.IsOurs() && (!isThorough || m_readiness.IsOurs())) return;
    m_readiness.Suspend();
    m_socket.Suspend();
    m_connectMs = std::max(settleMs, kConnectMs);
    StartJoin(false);
  }
  if (settleMs == 0) SendConnect();
}

// isAtOnce: sends CONN now, not after m_connectMs. Pass false after an error: if each CONN were answered but
// the next call failed again, the CONNs would fill the service's log.
void GDQUdpClient::StartJoin(bool isAtOnce) {
  m_isJoined = m_isBlocked = false;
  m_connects = 0;
  m_startUs = m_sinceUs = NowUs();
  if (isAtOnce) SendConnect();
}

void GDQUdpClient::SendConnect() {
  m_sinceUs = NowUs();
  if (m_readiness.Descriptor() < 0 && m_readiness.Open()) m_armedUs = SendWindow::kNever;
  if (m_socket.Descriptor() < 0 || m_connects % kReopenConnects == kReopenConnects - 1)
    m_socket.Open(m_server);
  m_socket.SendConnect();
}

// Also called while joined: a delayed CONN of ours ends our admission, and its answer is a new nonce.
void GDQUdpClient::TakeNonce(const char* nonce) {
  if (!m_socket.TakeNonce(nonce, m_password)) return;
  m_sinceUs = NowUs();
  if (!m_isAnswered) m_window.LearnAnswerTime(m_sinceUs - m_startUs);  // later, acks are more accurate
  m_isJoined = true;
  if (m_state == State::NotJoined) m_state = IsFallback() ? State::Unanswered : State::Joined;
  m_window.Rewind(m_sinceUs);
  if (m_options.listen) m_socket.Send("", 0, "", 0);  // admits us before there is anything to send
  if (IsFallback()) Send(m_window.Probe());
}

// False: nothing was received and nothing was due.
bool GDQUdpClient::Advance() {
  const bool hasRead = ReadSocket(), isDue = NowUs() >= DueUs();
  if (isDue) OnDue();
  SendDue();
  return hasRead || isDue;
}

bool GDQUdpClient::ReadSocket() {
  char packet[kMaxDatagram + 1];
  for (unsigned reads = 0; reads < kReadsAtOnce; ++reads) {
    const ssize_t size = m_socket.Receive(packet, sizeof packet);
    if (size < 0 && (errno == EAGAIN || errno == EBADF)) return reads != 0;
    if (size >= 0) {
      TakeDatagram(packet, static_cast<unsigned>(size));
    } else if (m_isJoined) {  // ECONNREFUSED: the port is closed, so do not wait for the timeout
      StartJoin(false);
    }
  }
  return true;
}

void GDQUdpClient::TakeDatagram(char* packet, unsigned size) {
  if (size < kCookieSize || size > kMaxDatagram) return;
  const bool isForUs = m_socket.IsForUs(packet);
  if (size == kCookieSize && !isForUs) return TakeNonce(packet);
  if (size == kCookieSize || !isForUs) return;
  packet[size] = '\0';
  const char* const text = packet + kCookieSize;
  if (m_window.TakeAnswer(text, NowUs())) return NoteAnswer();
  if (m_options.listen) m_relayed.Append(text, size - kCookieSize);
}

void GDQUdpClient::NoteAnswer() {
  m_isAnswered = true;
  m_connectMs = kConnectMs;
  m_heardUs = NowUs();
  m_state = State::Joined;
  if (IsFallback()) m_window.SetOnce(false);
}

void GDQUdpClient::SendDue() {
  SendWindow::Piece piece;
  while (m_isJoined && !m_isBlocked && m_window.Next(&piece) && Send(piece)) m_window.Sent(NowUs());
}

bool GDQUdpClient::Send(const SendWindow::Piece& piece) {
  if (m_socket.Send(piece.head, piece.headLength, piece.text, piece.length)) return true;
  m_isBlocked = errno == EAGAIN || errno == ENOBUFS;
  m_sinceUs = NowUs();
  if (m_isBlocked) return false;
  if (errno != ECONNREFUSED) {  // no route, at least from this local address
    m_socket.Close();
    m_connectMs = kMostConnectMs;
  }
  StartJoin(false);
  return false;
}

uint64_t GDQUdpClient::DueUs() const {
  if (!m_isJoined) return m_sinceUs + m_connectMs * kMs;
  if (m_isBlocked) return m_sinceUs + kBlockedUs;
  if (m_options.listen && m_window.Held() == 0) return m_heardUs + kKeepAliveUs;
  return m_window.DueUs();
}

void GDQUdpClient::OnDue() {
  if (!m_isJoined) {
    if (++m_connects == kReopenConnects) m_state = State::NotJoined;
    SendConnect();
    m_connectMs = std::min(m_connectMs * 2, kMostConnectMs);
  } else if (m_isBlocked) {
    m_isBlocked = false;
  } else if (m_window.Held() == 0) {
    m_heardUs = NowUs();
    m_window.Append("", 0);
  } else {
    OnSilence();
  }
}

void GDQUdpClient::OnSilence() {
  m_window.OnSilence(NowUs());
  const unsigned silences = m_window.Silences();
  if (!m_isAnswered && silences == kFallbackSilences) m_window.SetOnce(true);
  // Rejoins only at the 2nd, 4th, 8th, 16th and each 32nd timeout: each CONN is a line in the service's log.
  if (silences < 2 || ((silences & (silences - 1)) != 0 && silences % kSilencesPerConnect != 0)) return;
  if (silences >= kUnansweredSilences) m_state = State::Unanswered;
  if (++m_forcedJoins % 2 == 0) {
    // The service knows a peer only by its address times its port. Another peer may have the same result and
    // keep replacing our cookie: try another port.
    m_socket.SendConnect();
    m_socket.Close();
    m_socket.ChangePort();
  }
  StartJoin(true);
}

// Leaves a timer that expires earlier as it is, which saves system calls for each call sent.
void GDQUdpClient::Arm() {
  const uint64_t due = m_relayed.IsEmpty() && !m_isWoken ? DueUs() : 1;  // 1: at once (0 would disarm)
  if (due == m_armedUs || (due > m_armedUs && m_armedUs > NowUs())) return;
  ReplaceClosed(true, kSettleMs);
  m_readiness.SetTime(due);
  m_armedUs = due;
}

// Waits for a datagram with the mutex released, at most until endUs. False: endUs has passed. Waits at most
// kLongestUs, since another thread may read the datagram. Does not poll m_readiness, which is also readable
// for calls that only Process() may deliver.
bool GDQUdpClient::WaitUnlocked(uint64_t endUs) {
  constexpr uint64_t kLongestUs = 20 * kMs;
  const uint64_t now = NowUs();
  if (now >= endUs) return false;
  uint64_t until = DueUs() < endUs ? DueUs() : endUs;
  if (until > now + kLongestUs) until = now + kLongestUs;
  pollfd watched = {m_socket.Descriptor(), POLLIN, 0};
  const int state = m_cancelState;
  m_mutex.Unlock();
  pthread_setcancelstate(state, nullptr);
  poll(&watched, 1, until > now ? static_cast<int>((until - now + kMs - 1) / kMs) : 0);
  pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
  m_mutex.Lock();
  m_cancelState = state;
  ReplaceClosed(false, 0);
  return true;
}

bool GDQUdpClient::SendMsg(const char* text) {
  if (text == nullptr) text = "";
  const size_t length = strlen(text);
  errno = EMSGSIZE;
  if (length > kMaxCall || !IsUsable()) return false;
  const Lock lock(this);
  ReplaceClosed(false, 0);
  const uint64_t now = NowUs();
  if (now >= DueUs()) Advance();
  if (m_window.IsOnce() && m_isJoined && now - m_sinceUs > kTrustUs) {
    StartJoin(true);
    // Most likely the nonce comes at once. Without a wait the call could stay held until the next SendMsg().
    if (m_options.waitMs != 0) WaitUnlocked(now + kConnectMs * kMs);
  }
  const uint64_t end = EndUs(m_options.waitMs);
  bool isHeld = m_window.Append(text, static_cast<unsigned>(length));
  for (bool isInTime = true; !isHeld && isInTime; isInTime = isHeld || WaitUnlocked(end)) {
    Advance();
    isHeld = m_window.Append(text, static_cast<unsigned>(length));
  }
  SendDue();
  if (!m_window.IsAllSent()) Advance();
  Arm();
  if (!isHeld) errno = EAGAIN;
  return isHeld;
}

void GDQUdpClient::Call(const char* name, const char* args) {
  if (name == nullptr) name = "";
  if (args == nullptr) args = "";
  if (strlen(name) + 1 + strlen(args) <= kMaxCall || strcasecmp(name, "LogMsg") != 0)
    return GDQUdpBase::Call(name, args);
  for (LogCall line(name, args); const char* const call = line.Next();) SendMsg(call);
}

bool GDQUdpClient::Log(ELogMessageType type, const char* module, const char* text) {
  LogCall line(type, module, text);
  errno = EMSGSIZE;
  if (!line.IsValid()) return false;
  while (const char* const call = line.Next()) {
    if (!SendMsg(call)) return false;
  }
  return true;
}

unsigned GDQUdpClient::Flush(unsigned timeoutMs) {
  if (!IsUsable()) return errno == EPERM ? 1 : 0;
  const Lock lock(this);
  const uint64_t end = EndUs(timeoutMs);
  ReplaceClosed(false, 0);
  do {
    Advance();
  } while (m_window.Held() != 0 && WaitUnlocked(end));
  Arm();
  if (!m_options.reliable) return m_window.Held();
  const unsigned sentOnce = m_window.SentOnce() - m_reportedOnce;
  m_reportedOnce += sentOnce;
  return m_window.Held() + sentOnce;
}

GDQUdpClient::Status GDQUdpClient::GetStatus() {
  if (!IsUsable()) return Status();
  const Lock lock(this);
  return {m_state, m_window.Held(), m_window.Refused(), m_window.Forgotten(), m_window.SentOnce()};
}

void GDQUdpClient::Process(unsigned settleMs) {
  if (!IsUsable()) return;
  {
    const Lock lock(this);
    ReplaceClosed(false, settleMs);
    m_isWoken = false;
    // Called with nothing to do: the descriptor may now be a file of the program's and stay readable.
    if (!Advance()) ReplaceClosed(true, settleMs);
  }
  while (DeliverCall()) continue;
  const Lock lock(this);
  Arm();
}

void GDQUdpClient::Wake() {
  if (!IsUsable()) return;
  const Lock lock(this);
  m_isWoken = true;
  Arm();
}

// False: no call is waiting.
bool GDQUdpClient::DeliverCall() {
  char text[kMaxText + 1];
  {
    const Lock lock(this);
    if (m_relayed.IsEmpty()) return false;
    memcpy(text, m_relayed.Text(m_relayed.First()), m_relayed.At(m_relayed.First()).length + 1);
    m_relayed.RemoveFirst();
  }
  char* name = text;
  const char* args = SplitCall(&name);
  const bool isWrapped = strcasecmp(name, "WithAck") == 0;
  for (unsigned word = 0; isWrapped && word < 3; ++word) {  // CLIENT, NUMBER, and the name of the call
    name = const_cast<char*>(args);
    args = SplitCall(&name);
  }
  if (*name == '\0') return true;  // a ping
  int state = PTHREAD_CANCEL_ENABLE;
  pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &state);  // Deliver() holds a lock
  Deliver(name, args);
  pthread_setcancelstate(state, nullptr);
  return true;
}

}  // namespace Velk
