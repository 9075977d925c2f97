#include "tools/syslogctl/Session.h"

#include <errno.h>
#include <signal.h>
#include <string.h>

#include "client/LogCall.h"

namespace Ctl {
namespace {

using State = Velk::GDQUdpClient::State;

volatile sig_atomic_t s_interrupted = 0;

void Interrupt(int) {
  s_interrupted = 1;
}

void CatchInterrupts() {
  struct sigaction action {};
  action.sa_handler = Interrupt;
  action.sa_flags = static_cast<int>(SA_RESETHAND);
  const int numbers[] = {SIGINT, SIGTERM, SIGHUP};
  for (const int number : numbers) {
    struct sigaction before {};
    // Signals that were ignored at the start stay ignored: nohup(1) relies on it.
    if (sigaction(number, nullptr, &before) == 0 && before.sa_handler != SIG_IGN) {
      sigaction(number, &action, nullptr);
    }
  }
}

}  // namespace

Velk::GDQUdpClient::Options Holding(unsigned lines) {
  Velk::GDQUdpClient::Options how;
  how.waitMs = 0;
  how.heldLines = lines;
  return how;
}

namespace {

// A time limit that Renew() starts again.
class Patience {
 public:
  explicit Patience(unsigned limitMs) : m_limitMs(limitMs), m_sinceMs(NowMs()) {}

  void Renew() { m_sinceMs = NowMs(); }
  // 0: over.
  unsigned LeftMs() const {
    const unsigned long long waited = NowMs() - m_sinceMs;
    return waited < m_limitMs ? static_cast<unsigned>(m_limitMs - waited) : 0;
  }

 private:
  unsigned m_limitMs;
  unsigned long long m_sinceMs;
};

}  // namespace

void CallText::Call(const char* name, const char* args) {
  m_text.Set(name).Append(' ').Append(args);
}

Session::Session(const Options& options) : m_options(options) {
  CatchInterrupts();
}

int Session::Open(const Velk::GDQUdpClient::Options& how) {
  if (m_client.Open(m_options.server, m_options.password, how)) return kDone;
  if (errno == EHOSTUNREACH) {
    Say("unknown host '%s': check the name, or give its IPv4 address", m_options.server);
    return kNoAnswer;
  }
  if (errno == EINVAL) {
    Say("invalid port in '%s': give 1 to 65535 after the colon", m_options.server);
    return kUsage;
  }
  Say("cannot open sockets: %s", strerror(errno));
  return kUsage;
}

int Session::Join(const Velk::GDQUdpClient::Options& how) {
  const int opened = Open(how);
  if (opened != kDone) return opened;
  const Patience patience(m_options.timeoutMs);
  while (Status().state == State::NotJoined && patience.LeftMs() != 0 && !IsInterrupted()) {
    Wait(patience.LeftMs());
  }
  return Status().state != State::NotJoined ? kDone : ExplainSilence();
}

int Session::ExplainSilence() {
  switch (Status().state) {
    case State::NotJoined:
      Say("no answer from %s: is the service running there? Use -s for another server, or a longer --timeout",
          m_options.server);
      return kNoAnswer;
    case State::Unanswered:
      Say("%s answers, but acknowledges no calls: either the password is wrong (see --password-file), or the "
          "service is blocked, for example by a full pipe on its output, or it is too old to acknowledge any",
          m_options.server);
      return kNotConfirmed;
    case State::Joined:
      Say("%s acknowledges calls too slowly, or they are lost on the way: use --timeout to wait longer",
          m_options.server);
      return kNotConfirmed;
  }
  return kNotConfirmed;
}

// Reports the calls that may not have been run. isCut: adds that the rest was not sent.
int Session::Judge(bool isCut) {
  const Velk::GDQUdpClient::Status status = Status();
  if (status.held != 0 || status.state == State::Unanswered) ExplainSilence();
  if (status.held != 0) {
    Say("%u %s not confirmed%s", status.held, status.held == 1 ? "call is" : "calls are",
        isCut ? ", and the rest was not sent" : "");
  }
  if (status.sentOnce != 0) {
    Say("%u %s sent once and %s not confirmed", status.sentOnce,
        status.sentOnce == 1 ? "call was" : "calls were", status.sentOnce == 1 ? "is" : "are");
  }
  if (status.refused != 0) {
    Say("%s refused %u %s: unknown name, or wrong arguments", m_options.server, status.refused,
        status.refused == 1 ? "call" : "calls");
  }
  const bool isWell = status.held == 0 && status.state != State::Unanswered && status.sentOnce == 0 &&
                      status.refused == 0 && !isCut;
  return isWell ? kDone : kNotConfirmed;
}

int Session::SendLine(ELogMessageType type, const char* module, const char* text) {
  Velk::LogCall call(type, module, text);
  while (const char* const piece = call.Next()) {
    const int result = Send(piece);
    if (result != kDone) return result;
  }
  return kDone;
}

int Session::Send(const char* call) {
  const Patience patience(PatienceMs());
  while (!m_client.SendMsg(call)) {
    if (errno == EMSGSIZE) {
      Say("the call is too long: %zu bytes, but only %u fit in a datagram", strlen(call),
          Velk::GDQUdpClient::kMaxCall);
      return kUsage;
    }
    if (errno != EAGAIN) {
      Say("cannot send: %s", strerror(errno));
      return kUsage;
    }
    if (patience.LeftMs() == 0) return Judge(true);
    Wait(patience.LeftMs());
  }
  return kDone;
}

unsigned Session::PatienceMs() const {
  constexpr unsigned kInterruptedMs = 1000;  // after Ctrl-C the user expects a quick end
  return IsInterrupted() && m_options.timeoutMs > kInterruptedMs ? kInterruptedMs : m_options.timeoutMs;
}

int Session::Finish() {
  Patience patience(PatienceMs());
  bool wasInterrupted = IsInterrupted();
  unsigned left;
  while ((left = Status().held) != 0 && patience.LeftMs() != 0) {
    Wait(patience.LeftMs());
    if (Status().held < left) patience.Renew();
    if (IsInterrupted() && !wasInterrupted) patience = Patience(PatienceMs());
    wasInterrupted = IsInterrupted();
  }
  return Judge(false);
}

void Session::Wait(pollfd* descriptors, int count, unsigned timeoutMs) {
  constexpr unsigned kMostMs = 200;  // a signal just before poll(2) is noticed at most this late
  pollfd all[kMostDescriptors + 1];
  for (int i = 0; i < count; ++i) all[i] = descriptors[i];
  all[count] = {m_client.Descriptor(), POLLIN, 0};
  const int ready =
      poll(all, static_cast<nfds_t>(count) + 1, static_cast<int>(timeoutMs < kMostMs ? timeoutMs : kMostMs));
  for (int i = 0; i < count; ++i) descriptors[i].revents = ready > 0 ? all[i].revents : static_cast<short>(0);
  m_client.Process();
}

void Session::Pause(unsigned ms) {
  const Patience patience(ms);
  while (patience.LeftMs() != 0 && !IsInterrupted()) Wait(patience.LeftMs());
}

bool Session::IsInterrupted() {
  return s_interrupted != 0;
}

void Session::TellChanges() {
  constexpr unsigned kShortMs = 1000;  // shorter absences are not reported
  const Velk::GDQUdpClient::Status status = Status();
  const State state = status.state;
  if (state != m_state) {
    m_state = state;
    m_stateSinceMs = NowMs();
  }
  const bool isRestarted = state == State::Joined && status.forgotten != m_toldForgotten;
  const bool isNews = isRestarted || state != m_toldState;
  if (isNews && (state == State::Joined || NowMs() - m_stateSinceMs >= kShortMs)) {
    if (!m_options.quiet) TellState(isRestarted);
    m_toldState = state;
    if (isRestarted) m_toldForgotten = status.forgotten;
  }
  if (state == State::Joined) m_hasJoined = true;
}

void Session::TellState(bool isRestarted) {
  if (m_state == State::NotJoined) {
    Say("%s does not answer; retrying", m_options.server);
  } else if (m_state == State::Unanswered) {
    Say("%s answers, but acknowledges nothing: wrong password, or blocked, or too old; retrying",
        m_options.server);
  } else if (m_toldState == State::Unanswered && !isRestarted) {
    Say("%s acknowledges calls again", m_options.server);
  } else {
    Say("joined %s%s", m_options.server, m_hasJoined ? " again" : "");
  }
}

}  // namespace Ctl
