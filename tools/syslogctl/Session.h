// Tool layer: one conversation with the service.
#pragma once

#include <poll.h>

#include "client/GDQUdpClient.h"
#include "common/GDOBase.h"
#include "common/SimpleString.h"
#include "common/Timer64x.h"
#include "tools/syslogctl/Options.h"

namespace Ctl {

// Stores a call's text instead of sending it: (text << "SetVar" << name << value).CallObj().
class CallText final : public Velk::GDOBase {
 public:
  void Call(const char* name, const char* args) override;

  const char* Str() const { return m_text.Str(); }

 private:
  Velk::SimpleString m_text{512, 512};
};

using Velk::NowUs;
inline unsigned long long NowMs() {
  return NowUs() / 1000;
}

// Options of a client that holds this number of lines and never blocks: Session waits instead.
Velk::GDQUdpClient::Options Holding(unsigned lines);
constexpr unsigned kFewLines = 16;

// A client of the service. Reports errors to the user. The first SIGINT, SIGTERM or SIGHUP ends a wait;
// the same signal again ends the process. An int that is returned is an ExitValue; if it is not kDone, the
// reason was printed. One session at a time, on one thread.
class Session {
 public:
  static constexpr int kMostDescriptors = 3;

  explicit Session(const Options& options);

  // Starts to join and returns at once.
  int Open(const Velk::GDQUdpClient::Options& how);
  // Open(), then waits for an answer until the timeout. An answer does not mean that the service runs our
  // calls: the password may be wrong.
  int Join(const Velk::GDQUdpClient::Options& how);

  // Sends or holds a call. Waits for room until the timeout.
  int Send(const CallText& call) { return Send(call.Str()); }
  int Send(const char* call);
  // Likewise for a line of the log, given without a line feed. A long line becomes several calls.
  int SendLine(ELogMessageType type, const char* module, const char* text);
  // Waits until the service has run all calls or makes no more progress. Then reports the calls that were
  // refused or may not have been run.
  int Finish();
  // Prints why nothing is acknowledged.
  int ExplainSilence();

  // Like poll(2), but also lets the client work, and may return early.
  void Wait(pollfd* descriptors, int count, unsigned timeoutMs);
  void Wait(unsigned timeoutMs) { Wait(nullptr, 0, timeoutMs); }
  // Lets the client work for this time, or until interrupted.
  void Pause(unsigned ms);
  static bool IsInterrupted();

  // Tells the user if the service has gone away, returned or stopped acknowledging. Call it after each
  // Wait().
  void TellChanges();

  Velk::GDQUdpClient& Client() { return m_client; }
  Velk::GDQUdpClient::Status Status() { return m_client.GetStatus(); }

 private:
  int Judge(bool isCut);
  void TellState(bool isRestarted);
  unsigned PatienceMs() const;

  const Options& m_options;
  Velk::GDQUdpClient m_client;
  Velk::GDQUdpClient::State m_state = Velk::GDQUdpClient::State::NotJoined;
  unsigned long long m_stateSinceMs = NowMs();
  Velk::GDQUdpClient::State m_toldState = Velk::GDQUdpClient::State::Joined;
  unsigned m_toldForgotten = 0;
  bool m_hasJoined = false;
};

}  // namespace Ctl
