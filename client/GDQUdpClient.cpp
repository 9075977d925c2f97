#include "client/GDQUdpClient.h"

#include <errno.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>
#include <sys/epoll.h>
#include <sys/random.h>
#include <sys/timerfd.h>
#include <time.h>
#include <unistd.h>

#include <initializer_list>

#include "client/LogCall.h"
#include "common/ArgsParser.h"
#include "common/ScopedLock.h"

namespace Velk {

namespace {

constexpr uint64_t kNever = UINT64_MAX;
constexpr uint64_t kMs = 1000;
constexpr uint64_t kSettleUs = GDQUdpClient::kSettleMs * kMs;
constexpr uint64_t kKeepAliveUs = 1000 * kMs;
constexpr uint64_t kProbeGapUs = 20 * kMs;  // between probes that only confirm
constexpr uint64_t kBlockedUs = 10 * kMs;
constexpr uint64_t kRejoinUs = 5000 * kMs;  // how long a client without an ear trusts its admission
constexpr unsigned kLeastAnswerMs = 50;
constexpr unsigned kMostAnswerMs = 1000;
constexpr unsigned kProofs = 3;   // probes without an answer before a join has failed
constexpr unsigned kResends = 1;  // without an answer before we take the service to have forgotten us
constexpr unsigned kMostDoublings = 5;
constexpr unsigned kRefusals = 2;          // failed proofs, each with other ports, before we call it that
constexpr unsigned kDoubts = 8;            // the same once joined: the password was right, so it is the way
constexpr uint64_t kRestUs = 10000 * kMs;  // then it tries again; each wrong cookie is a line in the log
constexpr unsigned kReopenTries = 4;       // a socket keeps its local address, which may have changed
constexpr uint32_t kLeastWindow = 4;
constexpr uint32_t kMostWindow = 64;    // datagrams that a default receive buffer has room for
constexpr unsigned kHeardCalls = 1024;  // all that a default receive buffer has room for, of any length
constexpr unsigned kReadsAtOnce = 256;

uint64_t NowUs() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<uint64_t>(now.tv_sec) * 1000000 + static_cast<uint64_t>(now.tv_nsec) / 1000;
}

uint64_t EndUs(unsigned timeoutMs) {
  return timeoutMs == GDQUdpClient::kForever ? kNever : NowUs() + timeoutMs * kMs;
}

// A tag from its most significant bit: 10 bits of the client, 13 of the pass, probe or not, 16 of the number.
constexpr uint64_t kNumberMask = 0xFFFF;
constexpr uint64_t kProbeBit = 1U << 16;
constexpr uint64_t kPassShift = 17;
constexpr uint64_t kPassMask = 0x1FFF << kPassShift;
constexpr uint64_t kClientMask = uint64_t{0x3FF} << 30;

// Blank and tab for 0 and 1: white space behind the arguments means nothing to whom it is relayed.
void PutTag(char* out, uint64_t bits) {
  for (unsigned i = GDQUdpClient::kTagLength; i-- != 0;) *out++ = (bits >> i & 1) != 0 ? '\t' : ' ';
}

bool ReadTag(const char* in, uint64_t* bits) {
  *bits = 0;
  for (unsigned i = 0; i < GDQUdpClient::kTagLength; ++i) {
    if (in[i] != ' ' && in[i] != '\t') return false;
    *bits = *bits << 1 | (in[i] == '\t' ? 1 : 0);
  }
  return true;
}

}  // namespace

static_assert(LogCall::kMost == GDQUdpClient::kMaxTaggedText, "Log() sends what LogCall writes");

GDQUdpClient::GDQUdpClient() {
  pthread_mutex_init(&m_mutex, nullptr);
}

GDQUdpClient::~GDQUdpClient() {
  Close();
  free(m_password);
  pthread_mutex_destroy(&m_mutex);
}

namespace {

// Stricter than the address itself, which takes the lower half of whatever number there is.
bool HasUsablePort(const char* server) {
  const char* const colon = strchr(server, ':');
  if (colon == nullptr) return true;
  char* end = nullptr;
  const long port = strtol(colon + 1, &end, 10);
  return end != colon + 1 && *end == '\0' && port > 0 && port <= UINT16_MAX;
}

}  // namespace

bool GDQUdpClient::Open(const char* server, const char* password, const Options& options) {
  Close();
  if (server == nullptr) server = "";
  if (!HasUsablePort(server)) {
    errno = EINVAL;
    return false;
  }
  if (!m_server.SetAddressString(server, kDefaultPort)) {
    errno = EHOSTUNREACH;
    return false;
  }
  free(m_password);
  m_password = strdup(password != nullptr ? password : "");
  m_options = options;
  if (m_options.heldLines > kMostHeld) m_options.heldLines = kMostHeld;
  if (m_password == nullptr || !m_lines.Open(m_options.heldLines) ||
      (options.listen && !m_calls.Open(kHeardCalls))) {
    m_lines.Close();
    errno = ENOMEM;
    return false;
  }
  m_joins = m_handshakeUs = 0;
  return Start();
}

bool GDQUdpClient::Start() {
  if (getrandom(&m_client, sizeof m_client, GRND_NONBLOCK) < 0) m_client = NowUs() * kMs << 30;
  m_client &= kClientMask;
  m_epoll = epoll_create1(EPOLL_CLOEXEC);
  m_timer = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK);
  m_armedUs = kNever;
  epoll_event event{};
  event.events = EPOLLIN;
  if (m_epoll < 0 || m_timer < 0 || epoll_ctl(m_epoll, EPOLL_CTL_ADD, m_timer, &event) != 0) {
    const int why = errno;
    CloseDescriptors();
    errno = why;
    return false;
  }
  m_process = getpid();
  m_answerMs = kLeastAnswerMs;
  m_failedProofs = 0;
  m_state = State::NotJoined;
  StartJoin();
  Arm();
  return true;
}

// m_epoll first: a child process shares it with its parent and must not take the parent's sockets out of it.
void GDQUdpClient::CloseDescriptors() {
  if (m_epoll >= 0) close(m_epoll);
  if (m_timer >= 0) close(m_timer);
  m_epoll = m_timer = -1;
  m_mouth.Close();
  m_ear.Close();
}

void GDQUdpClient::Close() {
  if (m_process == 0) return;
  if (m_process == getpid()) {
    StopThread();
    if (m_mouth.HasCookie()) m_mouth.SendConnect();
    if (m_ear.HasCookie()) m_ear.SendConnect();
  } else {
    ForgetParent();  // who goes on using the sockets
  }
  CloseDescriptors();
  m_lines.Close();
  m_calls.Close();
  m_phase = Phase::Closed;
  m_state = State::NotJoined;
  m_process = 0;
}

// Its threads are not here. One of them may have held the lock when it forked.
void GDQUdpClient::ForgetParent() {
  pthread_mutex_init(&m_mutex, nullptr);
  ForgetLock();
  m_hasThread = false;
}

// Another thread of the parent may have been changing anything. So nothing is used but what Open() set.
void GDQUdpClient::AfterFork() {
  const bool hadThread = m_hasThread;
  ForgetParent();
  CloseDescriptors();
  m_lines.Clear();
  m_calls.Clear();
  m_process = getpid();
  if (Start() && hadThread) StartThread();
}

void GDQUdpClient::Enter() {
  const pid_t owner = m_process;
  if (owner != 0 && owner != getpid()) AfterFork();
}

// ---- Joining

// With new sockets: what the old ones had still to deliver belongs to the past.
void GDQUdpClient::StartJoin() {
  m_phase = Phase::Connecting;
  if (m_state == State::Joined) m_state = State::NotJoined;
  m_isBlocked = false;
  m_tries = 0;
  Rewind();
  m_mouth.Open(m_server, m_epoll);
  if (HasEar()) m_ear.Open(m_server, m_epoll);
  SendConnects();
}

// All that is held has to be sent, and receipted, again.
void GDQUdpClient::Rewind() {
  ++m_pass;
  m_window = kLeastWindow;
  m_receipted = m_next = m_lines.First();
  m_receiptedProbe = m_probeId;
  for (SentProbe& probe : m_probes) probe = SentProbe();
}

void GDQUdpClient::SendConnects() {
  m_sinceUs = NowUs();
  for (PeerSocket* socket : {&m_mouth, &m_ear}) {
    if (socket->HasCookie() || (socket == &m_ear && !HasEar())) continue;
    if (!socket->IsOpen() || m_tries % kReopenTries == kReopenTries - 1) socket->Open(m_server, m_epoll);
    socket->SendConnect();
  }
}

// Also when joined: a CONN may have taken its time and reached a service that has restarted meanwhile. A new
// cookie while proving is used by the next try, lest something that answers all we send with a nonce keeps us
// busy.
void GDQUdpClient::HandleNonce(PeerSocket& socket, const char* nonce) {
  if (m_phase == Phase::Resting) return;
  socket.TakeNonce(nonce, m_password);
  if (&socket == &m_mouth) m_handshakeUs = static_cast<unsigned>(NowUs() - m_sinceUs) | 1;
  if (!HasEar()) {
    BecomeJoined();
  } else if (m_mouth.HasCookie() && m_ear.HasCookie() && m_phase != Phase::Proving) {
    m_phase = Phase::Proving;
    m_tries = 0;
    Rewind();
    SendProof();
  }
}

// Until a probe has made the round trip, calls would only be lost.
void GDQUdpClient::SendProof() {
  m_ear.Send("", 0, "", 0);
  SendProbe(false);
}

void GDQUdpClient::BecomeJoined() {
  m_phase = Phase::Joined;
  m_failedProofs = 0;
  m_joinedUs = NowUs();
  if (m_state != State::Joined) ++m_joins;
  m_state = State::Joined;
}

// The password is wrong, or another peer shares our record: another port may help.
void GDQUdpClient::GiveUpProof() {
  if (m_answerMs < kMostAnswerMs) m_answerMs *= 2;
  for (PeerSocket* socket : {&m_mouth, &m_ear}) {
    socket->SendConnect();  // leaves the port
    socket->ChangePort();
  }
  if (++m_failedProofs < (m_joins == 0 ? kRefusals : kDoubts)) return StartJoin();
  m_state = State::Refused;
  m_phase = Phase::Resting;
  m_sinceUs = NowUs();
}

// ---- Receiving

void GDQUdpClient::Service() {
  ReadSocket(m_mouth);
  if (HasEar()) ReadSocket(m_ear);
  if (NowUs() >= DueUs()) OnDue();
  Pump();
}

void GDQUdpClient::ReadSocket(PeerSocket& socket) {
  char packet[kMaxDatagram + 1];
  for (unsigned reads = 0; reads < kReadsAtOnce; ++reads) {
    const ssize_t size = socket.Receive(packet, sizeof packet);
    if (size >= 0) {
      HandleDatagram(socket, packet, static_cast<unsigned>(size));
      continue;
    }
    if (errno == EAGAIN || errno == EBADF) return;
    // The machine says that nobody has the port: no need to wait for a silence.
    if (m_phase != Phase::Connecting) return StartJoin();
  }
}

uint64_t GDQUdpClient::TagBits(uint32_t number) const {
  return m_client | (uint64_t{m_pass} << kPassShift & kPassMask) | (number & kNumberMask);
}

void GDQUdpClient::HandleDatagram(PeerSocket& socket, const char* packet, unsigned size) {
  if (size < kCookieSize || size > kMaxDatagram) return;
  const bool isForUs = socket.IsForUs(packet);
  if (size == kCookieSize && !isForUs) HandleNonce(socket, packet);
  // The mouth hears what the ear hears, but for our own.
  if (size == kCookieSize || !isForUs || &socket != &m_ear) return;

  const char* const text = packet + kCookieSize;
  const unsigned length = size - kCookieSize;
  uint64_t tag = 0;
  const bool isTagged = length >= kTagLength && ReadTag(text + length - kTagLength, &tag);
  if (isTagged && (tag & kClientMask) == m_client) {
    HandleReceipt(tag, text, length - kTagLength);
  } else if (m_options.listen) {
    m_calls.Append(text, length);
  }
}

void GDQUdpClient::HandleReceipt(uint64_t tag, const char* text, unsigned length) {
  const auto number = static_cast<uint32_t>(tag & kNumberMask);
  if ((tag & kProbeBit) != 0) {
    HandleProbeReceipt(number);
  } else if ((tag & kPassMask) == (TagBits(0) & kPassMask)) {
    HandleLineReceipt(number, text, length);
  }
}

// Only the receipt of the oldest sent call counts. One behind it means that a call was lost, or overtaken:
// the order is saved by sending on from there.
void GDQUdpClient::HandleLineReceipt(uint32_t number, const char* text, unsigned length) {
  const uint32_t ahead = static_cast<uint16_t>(number - m_receipted);
  if (ahead >= m_next - m_receipted) return;
  HeldLines::Line& line = m_lines.At(m_receipted + ahead);
  if (line.length != length || memcmp(m_lines.Text(m_receipted + ahead), text, length) != 0) return;
  if (ahead != 0) return GoBack(m_window / 2);
  line.receiptUs = NowUs();
  ++m_receipted;
  if (m_window < kMostWindow) ++m_window;
  NoteAnswer(line.sentUs, line.receiptUs);
}

void GDQUdpClient::HandleProbeReceipt(uint32_t number) {
  SentProbe& probe = m_probes[number % kProbes];
  if (probe.id == 0 || (probe.id & kNumberMask) != number || probe.receiptUs != 0) return;
  probe.receiptUs = NowUs();
  if (probe.isAsked) m_hasProbeAnswer = true;
  if (static_cast<int32_t>(probe.id - m_receiptedProbe) > 0) m_receiptedProbe = probe.id;
  if (m_phase == Phase::Proving) BecomeJoined();
  NoteAnswer(probe.sentUs, probe.receiptUs);
}

// What was sent at sentUs has been taken: the service lived then, without a restart since the latest Rewind.
void GDQUdpClient::NoteAnswer(uint64_t sentUs, uint64_t receiptUs) {
  m_tries = 0;
  m_sinceUs = m_heardUs = receiptUs;
  // Four round trips, quickly up and slowly down.
  const uint64_t tripMs = (receiptUs - sentUs) / kMs * 4;
  m_answerMs -= m_answerMs / 8;
  if (m_answerMs < tripMs)
    m_answerMs = tripMs < kMostAnswerMs ? static_cast<unsigned>(tripMs) : kMostAnswerMs;
  if (m_answerMs < kLeastAnswerMs) m_answerMs = kLeastAnswerMs;

  while (m_lines.First() != m_receipted && m_lines.At(m_lines.First()).receiptUs + kSettleUs <= sentUs)
    m_lines.RemoveFirst();
}

// ---- Sending

// Sends what the window allows.
void GDQUdpClient::Pump() {
  while (m_phase == Phase::Joined && !m_isBlocked && m_next != m_lines.End()) {
    if (m_options.reliable && m_next - m_receipted >= m_window) return;
    HeldLines::Line& line = m_lines.At(m_next);
    line.sentUs = NowUs();
    if (!IsWaiting()) m_sinceUs = line.sentUs;
    if (!SendText(m_lines.Text(m_next), line.length, TagBits(m_next))) return;
    ++m_next;
    if (m_options.reliable) continue;
    m_lines.RemoveFirst();
    m_receipted = m_next;
  }
}

// False: not sent, and not to be counted as sent.
bool GDQUdpClient::SendText(const char* text, unsigned length, uint64_t tagBits) {
  char tag[kTagLength];
  PutTag(tag, tagBits);
  if (m_mouth.Send(text, length, tag, kTagLength)) return true;
  if (errno == EAGAIN || errno == ENOBUFS) {
    m_isBlocked = true;
    m_sinceUs = NowUs();
  } else {
    StartJoin();  // nobody has the port, or there is no way there
  }
  return false;
}

void GDQUdpClient::SendProbe(bool isAsked) {
  const uint64_t now = NowUs();
  if (!IsWaiting() || m_phase == Phase::Proving) m_sinceUs = now;
  if (++m_probeId == 0) ++m_probeId;
  m_probes[m_probeId % kProbes] = {m_probeId, isAsked, now, 0};
  SendText("", 0, TagBits(m_probeId) | kProbeBit);
}

// A new pass, from the oldest call without a receipt. Receipts of the pass before do not count any more.
void GDQUdpClient::GoBack(uint32_t window) {
  ++m_pass;
  m_window = window > kLeastWindow ? window : kLeastWindow;
  m_next = m_receipted;
  m_sinceUs = NowUs();
}

// ---- Time

// Something was sent that will be answered.
bool GDQUdpClient::IsWaiting() const {
  return m_next != m_receipted || m_probeId != m_receiptedProbe;
}

uint64_t GDQUdpClient::DueUs() const {
  if (m_phase == Phase::Closed) return kNever;
  if (m_phase == Phase::Resting) return m_sinceUs + kRestUs;
  if (m_isBlocked) return m_sinceUs + kBlockedUs;
  if (m_phase != Phase::Joined || IsWaiting()) {
    const unsigned patience = m_answerMs << (m_tries < kMostDoublings ? m_tries : kMostDoublings);
    return m_sinceUs + (patience < kMostAnswerMs ? patience : kMostAnswerMs) * kMs;
  }
  if (m_lines.First() != m_receipted) {
    const uint64_t settled = m_lines.At(m_lines.First()).receiptUs + kSettleUs;
    const uint64_t next = m_probes[m_probeId % kProbes].sentUs + kProbeGapUs;
    return settled > next ? settled : next;
  }
  return m_options.listen ? m_heardUs + kKeepAliveUs : kNever;
}

void GDQUdpClient::OnDue() {
  if (m_phase == Phase::Resting) {
    StartJoin();
  } else if (m_isBlocked) {
    m_isBlocked = false;
  } else if (m_phase == Phase::Connecting) {
    // After so many without a nonce it is no refusal any more.
    if (++m_tries == kReopenTries) m_state = State::NotJoined;
    SendConnects();
  } else if (m_phase == Phase::Proving) {
    if (++m_tries < kProofs) return SendProof();
    GiveUpProof();
  } else if (IsWaiting()) {
    if (++m_tries > kResends) return StartJoin();
    if (m_next != m_receipted) return GoBack(0);
    m_sinceUs = NowUs();
    SendProbe(false);
  } else {
    SendProbe(false);
  }
}

// Sets the timer, which is never read: setting it again makes it unreadable. When it would fire earlier than
// needed it stays, which saves a system call for each call sent.
void GDQUdpClient::Arm() {
  const bool isUndelivered = !m_calls.IsEmpty() || m_hasProbeAnswer;
  const uint64_t due = isUndelivered ? 1 : DueUs();
  if (due == m_armedUs || (due > m_armedUs && m_armedUs > NowUs())) return;
  itimerspec setting{};
  if (due != kNever) {
    setting.it_value.tv_sec = static_cast<time_t>(due / 1000000);
    setting.it_value.tv_nsec = static_cast<long>(due % 1000000 * 1000);
  }
  timerfd_settime(m_timer, TFD_TIMER_ABSTIME, &setting, nullptr);
  m_armedUs = due;
}

// Waits for the sockets, not for m_epoll, which also tells of calls that only Process() may deliver. Not for
// long, as another thread may take what is waited for.
bool GDQUdpClient::WaitUnlocked(uint64_t endUs) {
  constexpr uint64_t kLongestUs = 20 * kMs;
  const uint64_t now = NowUs();
  if (now >= endUs) return false;
  uint64_t until = DueUs() < endUs ? DueUs() : endUs;
  if (until > now + kLongestUs) until = now + kLongestUs;
  pollfd watched[] = {{m_mouth.Descriptor(), POLLIN, 0}, {m_ear.Descriptor(), POLLIN, 0}};
  pthread_mutex_unlock(&m_mutex);
  poll(watched, 2, until > now ? static_cast<int>((until - now + kMs - 1) / kMs) : 0);
  pthread_mutex_lock(&m_mutex);
  return true;
}

// ---- What the owner calls

bool GDQUdpClient::SendMsg(const char* text) {
  if (text == nullptr) text = "";
  const size_t length = strlen(text);
  if (length > kMaxTaggedText) {
    errno = EMSGSIZE;
    return false;
  }
  Enter();
  const ScopedLock lock(m_mutex);
  if (m_phase == Phase::Closed) {
    errno = EBADF;
    return false;
  }
  const uint64_t now = NowUs();
  if (now >= DueUs()) Service();
  if (!HasEar() && m_phase == Phase::Joined && now - m_joinedUs > kRejoinUs) {
    StartJoin();
    // Most likely the nonce comes at once, and perhaps nobody gives us time until the next call.
    if (m_options.waitMs != 0) WaitUnlocked(now + kLeastAnswerMs * kMs);
  }
  if (!Append(text, static_cast<unsigned>(length))) {
    Arm();
    errno = EAGAIN;
    return false;
  }
  Pump();
  if (m_next != m_lines.End()) Service();
  Arm();
  return true;
}

// Waits for room as long as Options::waitMs.
bool GDQUdpClient::Append(const char* text, unsigned length) {
  if (m_lines.Append(text, length)) return true;
  const uint64_t end = EndUs(m_options.waitMs);
  do {
    Service();
    if (m_lines.Append(text, length)) return true;
  } while (WaitUnlocked(end));
  return false;
}

void GDQUdpClient::Call(const char* name, const char* args) {
  if (name == nullptr) name = "";
  if (args == nullptr) args = "";
  if (strlen(name) + 1 + strlen(args) > kMaxTaggedText && strcasecmp(name, "LogMsg") == 0) {
    ArgsParser parser(3);
    if (!parser.ParseArgs(args) || parser.GetArgs()->GetCount() != 3) return;
    const ArgsParser::Args& list = *parser.GetArgs();
    Log(static_cast<ELogMessageType>(list[0]->AsInt()), list[1]->AsStr(), list[2]->AsStr());
    return;
  }
  GDQUdpBase::Call(name, args);
}

bool GDQUdpClient::Log(ELogMessageType type, const char* module, const char* text) {
  LogCall line(type, module, text);
  if (!line.IsValid()) {
    errno = EMSGSIZE;
    return false;
  }
  while (const char* call = line.Next()) {
    if (!SendMsg(call)) return false;
  }
  return true;
}

// Works until done() or the time is over.
template <typename Condition>
void GDQUdpClient::WorkUntil(unsigned timeoutMs, Condition done) {
  if (m_phase == Phase::Closed) return;
  const uint64_t end = EndUs(timeoutMs);
  do {
    Service();
  } while (!done() && WaitUnlocked(end));
  Arm();
}

unsigned GDQUdpClient::Flush(unsigned timeoutMs) {
  Enter();
  const ScopedLock lock(m_mutex);
  WorkUntil(timeoutMs, [this] { return m_lines.IsEmpty(); });
  return m_lines.End() - m_lines.First();
}

GDQUdpClient::State GDQUdpClient::WaitForAnswer(unsigned timeoutMs) {
  Enter();
  const ScopedLock lock(m_mutex);
  WorkUntil(timeoutMs, [this] { return m_state != State::NotJoined; });
  return m_state;
}

template <typename Value>
Value GDQUdpClient::Locked(const Value& value) {
  Enter();
  const ScopedLock lock(m_mutex);
  return value;
}

GDQUdpClient::State GDQUdpClient::GetState() {
  return Locked(m_state);
}

unsigned GDQUdpClient::Joins() {
  return Locked(m_joins);
}

unsigned GDQUdpClient::HandshakeMicros() {
  return Locked(m_handshakeUs);
}

int GDQUdpClient::Descriptor() {
  return Locked(m_epoll);
}

unsigned GDQUdpClient::Held() {
  Enter();
  const ScopedLock lock(m_mutex);
  return m_lines.End() - m_lines.First();
}

unsigned GDQUdpClient::Unreceipted() {
  Enter();
  const ScopedLock lock(m_mutex);
  return m_lines.End() - m_receipted;
}

unsigned GDQUdpClient::Probe() {
  Enter();
  const ScopedLock lock(m_mutex);
  if (m_phase != Phase::Joined || !HasEar() || m_isBlocked) return 0;
  SendProbe(true);
  Arm();
  return m_phase == Phase::Joined ? m_probeId : 0;
}

void GDQUdpClient::Process() {
  Enter();
  {
    const ScopedLock lock(m_mutex);
    if (m_phase == Phase::Closed) return;
    Service();
  }
  while (DeliverCall()) continue;
  while (DeliverProbeAnswer()) continue;
  const ScopedLock lock(m_mutex);
  Arm();
}

// False: there was none.
bool GDQUdpClient::DeliverCall() {
  char text[kMaxText + 1];
  {
    const ScopedLock lock(m_mutex);
    if (m_calls.IsEmpty()) return false;
    memcpy(text, m_calls.Text(m_calls.First()), m_calls.At(m_calls.First()).length + 1);
    m_calls.RemoveFirst();
  }
  char* name = text;
  const char* const args = SplitCall(&name);
  if (*name == '\0') return true;  // a probe of somebody else's
  Deliver(name, args);
  if (m_onCall.function != nullptr) m_onCall.function(name, args, m_onCall.user);
  return true;
}

bool GDQUdpClient::DeliverProbeAnswer() {
  SentProbe answer;
  {
    const ScopedLock lock(m_mutex);
    for (SentProbe& probe : m_probes) {
      if (!probe.isAsked || probe.receiptUs == 0) continue;
      answer = probe;
      probe.isAsked = false;
      break;
    }
    m_hasProbeAnswer = answer.id != 0;
    if (!m_hasProbeAnswer) return false;
  }
  const auto micros = static_cast<unsigned>(answer.receiptUs - answer.sentUs);
  if (m_onProbe.function != nullptr) m_onProbe.function(answer.id, micros, m_onProbe.user);
  return true;
}

// ---- The thread

bool GDQUdpClient::StartThread() {
  Enter();
  const ScopedLock lock(m_mutex);
  if (m_hasThread) return true;
  if (m_phase == Phase::Closed) {
    errno = EBADF;
    return false;
  }
  m_endThread = false;
  // The program's signal handlers expect to run on the program's threads.
  sigset_t all, before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  const int error = pthread_create(&m_thread, nullptr, RunThread, this);
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  m_hasThread = error == 0;
  if (error != 0) errno = error;
  return m_hasThread;
}

void* GDQUdpClient::RunThread(void* self) {
  auto* const client = static_cast<GDQUdpClient*>(self);
  pollfd watched = {client->Descriptor(), POLLIN, 0};
  while (!client->m_endThread) {
    poll(&watched, 1, -1);
    client->Process();
  }
  return nullptr;
}

void GDQUdpClient::StopThread() {
  if (!m_hasThread) return;
  m_endThread = true;
  {
    const ScopedLock lock(m_mutex);
    const itimerspec now = {{0, 0}, {0, 1}};
    timerfd_settime(m_timer, 0, &now, nullptr);
    m_armedUs = 0;
  }
  pthread_join(m_thread, nullptr);
  m_hasThread = false;
}

}  // namespace Velk
