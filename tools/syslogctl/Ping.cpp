// syslogctl ping
#include <errno.h>
#include <stdio.h>
#include <string.h>

#include "tools/syslogctl/Commands.h"
#include "tools/syslogctl/Session.h"

namespace Ctl {
namespace {

class Statistics {
 public:
  void CountSent() { ++m_sent; }
  void Add(unsigned micros);
  void Print(const char* server, unsigned long long tookMs) const;

  unsigned long Sent() const { return m_sent; }
  unsigned long Received() const { return m_received; }

 private:
  unsigned long m_sent = 0;
  unsigned long m_received = 0;
  unsigned m_min = 0xFFFFFFFF;
  unsigned m_max = 0;
  unsigned long long m_sum = 0;  // microseconds
};

double Milliseconds(double micros) {
  return micros / 1000;
}

void Statistics::Add(unsigned micros) {
  ++m_received;
  m_sum += micros;
  if (micros < m_min) m_min = micros;
  if (micros > m_max) m_max = micros;
}

void Statistics::Print(const char* server, unsigned long long tookMs) const {
  if (m_sent == 0) return;
  const unsigned long lost = m_sent > m_received ? m_sent - m_received : 0;
  printf("\n--- %s ping statistics ---\n%lu sent, %lu receipts, %.0f%% loss, time %llums\n", server, m_sent,
         m_received, 100.0 * static_cast<double>(lost) / static_cast<double>(m_sent), tookMs);
  if (m_received == 0) return;
  printf("rtt min/avg/max = %.3f/%.3f/%.3f ms\n", Milliseconds(m_min),
         Milliseconds(static_cast<double>(m_sum) / static_cast<double>(m_received)), Milliseconds(m_max));
}

struct Pinger {
  static constexpr unsigned kLatest = 16;  // as many as the client waits for

  const Options& options;
  Statistics statistics;
  unsigned ids[kLatest];  // that the client gave to what we count

  // False: it could not be sent.
  bool SendOne(Session& session) {
    unsigned& id = ids[statistics.Sent() % kLatest];
    statistics.CountSent();
    id = session.Client().Probe();
    return id != 0;
  }

  static void OnReceipt(unsigned id, unsigned micros, void* user) {
    auto* const self = static_cast<Pinger*>(user);
    self->statistics.Add(micros);
    if (!self->options.quiet) {
      printf("receipt from %s: seq=%lu time=%.3f ms\n", self->options.server, self->NumberOf(id),
             Milliseconds(micros));
    }
  }

  unsigned long NumberOf(unsigned id) const {
    unsigned long number = statistics.Sent();
    while (number > 1 && ids[(number - 1) % kLatest] != id) --number;
    return number;
  }

  bool IsOver() const {
    return Session::IsInterrupted() || (options.count != 0 && statistics.Sent() >= options.count);
  }
  bool IsComplete() const { return statistics.Received() >= statistics.Sent(); }
};

// False: nobody reads what is printed.
bool SendAll(const Options& options, Session& session, Pinger& pinger) {
  while (!pinger.IsOver()) {
    if (!pinger.SendOne(session)) Say("not joined at %s, trying again", options.server);
    const bool isLast = options.count != 0 && pinger.statistics.Sent() >= options.count;
    if (!isLast) session.Pause(options.intervalMs);
    if (fflush(stdout) != 0) return false;
  }
  // The last receipts, if they come.
  const unsigned long long begin = NowMs();
  while (!pinger.IsComplete() && !Session::IsInterrupted() && NowMs() - begin < options.timeoutMs) {
    session.Wait(options.timeoutMs);
  }
  return true;
}

}  // namespace

int RunPing(const Options& options) {
  Session session(options);
  Pinger pinger{options, {}, {}};
  session.Client().SetProbeHandler(Pinger::OnReceipt, &pinger);
  Velk::GDQUdpClient::Options how;
  how.reliable = false;
  how.listen = true;
  const int joined = session.Join(how);
  if (joined != kDone) return joined;
  printf("PING %s: handshake time=%.3f ms\n", options.server,
         Milliseconds(session.Client().HandshakeMicros()));
  const unsigned long long begin = NowMs();
  const bool isWritten = SendAll(options, session, pinger);
  pinger.statistics.Print(options.server, NowMs() - begin);
  if (!isWritten || fflush(stdout) != 0 || ferror(stdout) != 0) {
    Say("cannot write to standard output: %s", strerror(errno));
    return kUsage;
  }
  return pinger.statistics.Received() != 0 ? kDone : kNotConfirmed;
}

}  // namespace Ctl
