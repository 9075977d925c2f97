// Application layer: runs "WithAck" calls and acknowledges them.
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

// Acknowledges calls, since any datagram may be lost. A client chooses a random name, numbers its calls from
// 1 and sends them as
//
//   WithAck CLIENT NUMBER [NAME ARGUMENT...]
//
// The client's next number is run: NAME is dispatched as if it had come alone; without NAME there is nothing
// to do. A lower number was run already and a higher one leaves a gap; neither is run. All are acknowledged,
// to the sender only:
//
//   Ack CLIENT LAST NUMBER REFUSED
//
// All numbers up to LAST were run. REFUSED of them were refused: unknown name, wrong arguments, or text that
// cannot be parsed. One acknowledgement therefore replaces all that were lost before it. LAST 0: the client
// is not known; only number 1 makes it known. A call without CLIENT and NUMBER gets no acknowledgement.
//
// The server's only listener: passes all other calls on to RemoteMessages. Call() runs on the receive thread,
// everything else on the worker thread.
class AckedCalls final : public Velk::GDOTimerBase {
 public:
  static constexpr unsigned kMostDigits = 18;  // of a NUMBER, so that NUMBER + 1 fits in 64 bits

  // The objects are not owned and must outlive this one.
  AckedCalls(RemoteMessages& messages, Velk::GDQUdpSrv& server) : m_messages(messages), m_server(server) {}

  // For the server only, while it delivers a call: the acknowledgement goes to GDQUdpSrv::Sender().
  void Call(const char* name, const char* args) override;

  // False: the call was run and refused, or has no CLIENT and NUMBER.
  bool Dispatch(const char* name, const Velk::IArgsList* args) override;

  // Call it for every call that the queue cannot parse, whatever its target. Acknowledges the call if it is
  // ours, and keeps the worker thread awake if more of ours are pending.
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
  Velk::ArgsParser m_head{3};          // what can be parsed of a faulty call's CLIENT, NUMBER and NAME
  std::atomic<uint32_t> m_pending{0};  // posted calls, neither dispatched nor found faulty
};
