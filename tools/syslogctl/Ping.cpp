// Tool layer: syslogctl ping.
#include <stdio.h>

#include "tools/syslogctl/Commands.h"
#include "tools/syslogctl/Session.h"
#include "tools/syslogctl/Shown.h"

namespace Ctl {
namespace {

using State = Velk::GDQUdpClient::State;

double Milliseconds(double micros) {
  return micros / 1000;
}

class Statistics {
 public:
  void CountSent() { ++m_sent; }
  void Add(unsigned long long micros);
  void Print(const char* server, unsigned long long tookMs) const;

  unsigned long Sent() const { return m_sent; }
  unsigned long Answered() const { return m_answered; }

 private:
  unsigned long m_sent = 0;
  unsigned long m_answered = 0;
  unsigned long long m_min = ~0ULL;
  unsigned long long m_max = 0;
  unsigned long long m_sum = 0;  // microseconds
};

void Statistics::Add(unsigned long long micros) {
  ++m_answered;
  m_sum += micros;
  if (micros < m_min) m_min = micros;
  if (micros > m_max) m_max = micros;
}

void Statistics::Print(const char* server, unsigned long long tookMs) const {
  if (m_sent == 0) return;
  printf("\n--- %s ping statistics ---\n%lu sent, %lu answers, %.0f%% loss, time %llums\n", server, m_sent,
         m_answered, 100.0 * static_cast<double>(m_sent - m_answered) / static_cast<double>(m_sent), tookMs);
  if (m_answered == 0) return;
  printf("rtt min/avg/max = %.3f/%.3f/%.3f ms\n", Milliseconds(static_cast<double>(m_min)),
         Milliseconds(static_cast<double>(m_sum) / static_cast<double>(m_answered)),
         Milliseconds(static_cast<double>(m_max)));
}

// Sends no call while one is held, so it is clear which call an answer belongs to.
class Pinger {
 public:
  Pinger(const Options& options, Session& session) : m_options(options), m_session(session) {}

  // Anything but kDone: it failed and printed why.
  int Run();
  const Statistics& Result() const { return m_statistics; }

 private:
  int SendOne();
  bool WaitUntilDone(unsigned long long sentUs);
  bool IsLast() const { return m_options.count != 0 && m_statistics.Sent() >= m_options.count; }

  const Options& m_options;
  Session& m_session;
  Statistics m_statistics;
};

// Waits until the call is no longer held. False: interrupted or, with --count, not within the timeout.
bool Pinger::WaitUntilDone(unsigned long long sentUs) {
  while (m_session.Status().held != 0) {
    const unsigned long long waitedMs = (NowUs() - sentUs) / 1000;
    if (Session::IsInterrupted() || (m_options.count != 0 && waitedMs >= m_options.timeoutMs)) return false;
    m_session.Wait(m_options.timeoutMs);
    if (m_options.count == 0) m_session.TellChanges();
  }
  return true;
}

int Pinger::SendOne() {
  m_statistics.CountSent();
  const unsigned long long sentUs = NowUs();
  const int sent = m_session.Send("");
  if (sent != kDone) return sent;
  const bool isDone = WaitUntilDone(sentUs);
  const unsigned long long micros = NowUs() - sentUs;
  // Unanswered: the client sent the call once without waiting for an ack, so there is nothing to measure.
  if (isDone && m_session.Status().state != State::Unanswered) {
    m_statistics.Add(micros);
    if (m_options.quiet) return kDone;
    printf("answer from %s: seq=%lu time=%.3f ms\n", m_options.server, m_statistics.Sent(),
           Milliseconds(static_cast<double>(micros)));
    return kDone;
  }
  return m_options.count == 0 || Session::IsInterrupted() ? kDone : m_session.ExplainSilence();
}

int Pinger::Run() {
  while (!Session::IsInterrupted()) {
    const unsigned long long begin = NowMs();
    const int result = SendOne();
    if (result != kDone || IsLast()) return result;
    if (fflush(stdout) != 0) return kDone;  // RunPing() reports it
    const unsigned long long tookMs = NowMs() - begin;
    if (tookMs < m_options.intervalMs) m_session.Pause(m_options.intervalMs - static_cast<unsigned>(tookMs));
  }
  return kDone;
}

}  // namespace

int RunPing(const Options& options) {
  Session session(options);
  const unsigned long long begin = NowUs();
  int result = session.Join(Holding(kFewLines));
  if (result != kDone) return result;
  const unsigned long long joined = NowUs();
  printf("PING %s: handshake time=%.3f ms\n", options.server,
         Milliseconds(static_cast<double>(joined - begin)));
  Pinger pinger(options, session);
  result = pinger.Run();
  pinger.Result().Print(options.server, (NowUs() - joined) / 1000);
  if (!FlushOutput()) return kUsage;
  if (result != kDone) return result;
  return pinger.Result().Answered() != 0 ? kDone : kNotConfirmed;
}

}  // namespace Ctl
