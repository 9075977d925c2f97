// Application layer: calls that are answered.
#pragma once

#include <atomic>
#include <cstdint>

#include "app/AckClients.h"
#include "common/ArgsParser.h"
#include "common/GDOTimerBase.h"
#include "common/InetAddress2.h"

namespace Velk {
class GDQUdpSrv;
}
class RemoteMessages;

// Tells a peer what became of its calls, since any datagram may be lost. A client, which has a random name,
// numbers its calls from 1 and makes them as
//
//   WithAck CLIENT NUMBER [NAME ARGUMENT...]
//
// Its next number is run: NAME is dispatched as if it had come alone; without a NAME nothing is to be done. A
// lower number was run already, a higher one leaves a gap; neither is run. Each of them is answered, to the
// sender alone:
//
//   Ack CLIENT LAST NUMBER REFUSED
//
// All numbers up to LAST were run, and REFUSED of these calls were refused: unknown, wrong arguments, or not
// to be parsed. So one answer makes up for all that were lost before it. LAST 0: the client is not known, and
// only its number 1 makes it so. There is no answer without a CLIENT and a NUMBER.
//
// The server's one listener: all other calls go on to the messages. Call runs on the receive thread, the rest
// on the worker thread.
class AckedCalls final : public Velk::GDOTimerBase {
 public:
  static constexpr unsigned kMostDigits = 18;  // of a NUMBER: the one after it fits in 64 bits too

  // The objects are not owned and must outlive this one.
  AckedCalls(RemoteMessages& messages, Velk::GDQUdpSrv& server) : m_messages(messages), m_server(server) {}

  // Only from the server's delivery of a call: the answer goes to its sender.
  void Call(const char* name, const char* args) override;

  // False: the call was run and refused, or has no CLIENT and NUMBER.
  bool Dispatch(const char* name, const Velk::IArgsList* args) override;

  // What the queue reports of any target's call that it cannot parse. Answers the call if it was to be
  // answered, and sees to it that those after it are.
  void OnParseError(const Velk::IGenericDispatchTarget* target, const char* name, const char* args);

 private:
  void Post(const char* args);
  bool RunAndAnswer(const InetAddress2& sender, const Velk::IArgsList* args, bool isParsed);
  bool Run(const Velk::IArgsList* args);
  void Answer(const InetAddress2& sender, const char* clientName, const AckClients::Client* client,
              uint64_t number);

  RemoteMessages& m_messages;
  Velk::GDQUdpSrv& m_server;
  AckClients m_clients;
  Velk::ArgsParser m_head{3};          // CLIENT, NUMBER and what proves that NUMBER is complete
  std::atomic<uint32_t> m_pending{0};  // calls that were posted and neither dispatched nor reported yet
};
