// Tool layer: one conversation with the service.
#pragma once

#include <poll.h>

#include "client/GDQUdpClient.h"
#include "common/GDOBase.h"
#include "common/SimpleString.h"
#include "common/Timer64x.h"
#include "tools/syslogctl/Options.h"

namespace Ctl {

// Writes a call down instead of making it: (text << "SetVar" << name << value).CallObj().
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

// Options of a client that holds so many lines and leaves it to Session to wait for room.
Velk::GDQUdpClient::Options Holding(unsigned lines);
constexpr unsigned kFewLines = 16;

// A client of the service, and what there is to say about it. SIGINT, SIGTERM and SIGHUP end its waiting in
// order; a second one ends the process. One at a time, on one thread.
class Session {
 public:
  static constexpr int kMostDescriptors = 3;

  explicit Session(const Options& options);

  // Starts to join and returns at once. Anything but kDone: said why.
  int Open(const Velk::GDQUdpClient::Options& how);
  // The same, and waits until the service answers or the timeout is over. Whether it runs calls is not known
  // then.
  int Join(const Velk::GDQUdpClient::Options& how);

  // Sends or holds a call, and waits for room as long as there is progress. Anything but kDone: said why.
  int Send(const CallText& call) { return Send(call.Str()); }
  int Send(const char* call);
  // The same for a line of the log, as several calls where it is too long for one. It brings no line feed.
  int SendLine(ELogMessageType type, const char* module, const char* text);
  // Waits until the service has run all that was sent, as long as there is progress. Anything but kDone: said
  // what it has not run, or refused, or may not have run.
  int Finish();
  // Says why nothing is acknowledged.
  int ExplainSilence();

  // Lets the client work, then waits until a descriptor is ready (revents says which), the client has
  // something to do, it is interrupted, or about timeoutMs passed.
  void Wait(pollfd* descriptors, int count, unsigned timeoutMs);
  void Wait(unsigned timeoutMs) { Wait(nullptr, 0, timeoutMs); }
  // Lets the client work for so long, or until interrupted.
  void Pause(unsigned ms);
  static bool IsInterrupted();

  // Says, once, when the service is gone, acknowledges nothing or is back. For commands that go on meanwhile.
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
