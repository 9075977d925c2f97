#include "tools/syslogctl/Session.h"

#include <errno.h>
#include <signal.h>
#include <string.h>
#include <time.h>

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
    // What was started with signals ignored, as by nohup(1), goes on ignoring them.
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

unsigned long long NowMs() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<unsigned long long>(now.tv_sec) * 1000 +
         static_cast<unsigned long long>(now.tv_nsec) / 1000000;
}

namespace {

// A time limit that starts anew with every bit of progress.
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
    Say("there is no host '%s': check the name, or give its IPv4 address", m_options.server);
    return kNobodyAnswers;
  }
  if (errno == EINVAL) {
    Say("'%s' has no port from 1 to 65535 behind its colon", m_options.server);
    return kUsage;
  }
  Say("cannot open sockets: %s", strerror(errno));
  return kUsage;
}

int Session::Join(const Velk::GDQUdpClient::Options& how) {
  const int opened = Open(how);
  if (opened != kDone) return opened;
  const Patience patience(m_options.timeoutMs);
  while (m_client.GetState() == State::NotJoined && patience.LeftMs() != 0 && !IsInterrupted()) {
    Wait(patience.LeftMs());
  }
  return m_client.GetState() == State::Joined ? kDone : ExplainSilence();
}

// Says why nothing is confirmed.
int Session::ExplainSilence() {
  switch (m_client.GetState()) {
    case State::NotJoined:
      Say("nobody answers at %s: is the service running there? -s names another server, --timeout waits "
          "longer",
          m_options.server);
      return kNobodyAnswers;
    case State::Refused:
      Say("%s answers but takes nothing from us: the password is wrong, or that is not the service; "
          "--password-file names the file with the right one",
          m_options.server);
      return kNotConfirmed;
    case State::Joined:
      Say("%s takes calls too slowly, or they are lost on the way: --timeout waits longer", m_options.server);
      return kNotConfirmed;
  }
  return kNotConfirmed;
}

int Session::GiveUp(unsigned left) {
  ExplainSilence();
  Say("%u %s not confirmed, nor what was to follow", left, left == 1 ? "call is" : "calls are");
  return kNotConfirmed;
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
      Say("the call is too long: %zu bytes, %u fit in a datagram", strlen(call),
          Velk::GDQUdpClient::kMaxTaggedText);
      return kUsage;
    }
    if (errno != EAGAIN) {
      Say("cannot send: %s", strerror(errno));
      return kUsage;
    }
    if (patience.LeftMs() == 0) return GiveUp(m_client.Held() + 1);
    Wait(patience.LeftMs());
  }
  return kDone;
}

unsigned Session::PatienceMs() const {
  constexpr unsigned kInterruptedMs = 1000;  // who presses Ctrl-C does not want to wait
  return IsInterrupted() && m_options.timeoutMs > kInterruptedMs ? kInterruptedMs : m_options.timeoutMs;
}

unsigned Session::Unfinished(bool isConfirmed) {
  return isConfirmed ? m_client.Held() : m_client.Unreceipted();
}

int Session::Finish(bool isConfirmed) {
  Patience patience(PatienceMs());
  unsigned left;
  while ((left = Unfinished(isConfirmed)) != 0) {
    if (patience.LeftMs() == 0) return GiveUp(left);
    Wait(patience.LeftMs());
    if (Unfinished(isConfirmed) < left) patience.Renew();
  }
  return kDone;
}

void Session::Wait(pollfd* descriptors, int count, unsigned timeoutMs) {
  constexpr unsigned kMostMs = 200;  // a signal just before poll(2) goes unnoticed so long
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
  constexpr unsigned kShortMs = 1000;  // a join, or a restart, that nobody need to hear of while it goes on
  const State state = m_client.GetState();
  const unsigned joins = m_client.Joins();
  if (state != m_state) {
    m_state = state;
    m_stateSinceMs = NowMs();
  }
  const bool isRejoined = state == State::Joined && joins > m_toldJoins;
  const bool isNews = isRejoined || state != m_toldState;
  if (!isNews || (state == State::NotJoined && NowMs() - m_stateSinceMs < kShortMs)) return;
  m_toldState = state;
  if (state == State::Joined) m_toldJoins = joins;
  if (m_options.quiet) return;
  if (state == State::NotJoined) Say("%s does not answer; trying again", m_options.server);
  if (state == State::Joined) Say("joined %s%s", m_options.server, joins > 1 ? " again" : "");
  if (state == State::Refused) {
    Say("%s answers but takes nothing from us: wrong password? Trying again", m_options.server);
  }
}

}  // namespace Ctl
