#include "app/AckedCalls.h"

#include <ctype.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>

#include "app/RemoteMessages.h"
#include "common/GDQUdpSrv.h"
#include "common/TextOps.h"

using Velk::IArg;
using Velk::IArgsList;
using Velk::TextOps;

namespace {

constexpr char kName[] = "WithAck";
constexpr char kWakeUp[] = "";  // a call that only wakes the worker thread

// The queued name carries the sender: "WithAck 127.0.0.1:40000". A peer cannot forge it, since the name in a
// datagram ends at the first blank.
InetAddress2 SenderOf(const char* name) {
  const char* const address = name + sizeof kName;
  const char* const port = strchr(address, ':');
  return InetAddress2(static_cast<long>(InetAddress2::StringToIP(address, nullptr)),
                      port != nullptr ? static_cast<unsigned short>(atoi(port + 1)) : 0);
}

bool IsClientName(const char* text) {
  const char* end = text;
  while (isalnum(static_cast<unsigned char>(*end))) ++end;
  return *end == '\0' && end != text && end - text <= static_cast<int>(AckClients::kLongestName);
}

bool ReadNumber(const char* text, uint64_t* number) {
  const char* const end = TextOps::GetNum(text, number);
  return *end == '\0' && end != text && end - text <= static_cast<int>(AckedCalls::kMostDigits);
}

// All arguments but the first m_skipped.
class Rest final : public IArgsList {
 public:
  Rest(const IArgsList& all, unsigned skipped) : m_all(all), m_skipped(skipped) {}
  unsigned int GetCount() const override { return m_all.GetCount() - m_skipped; }
  const IArg* GetItem(unsigned int index) const override {
    return index < GetCount() ? m_all.GetItem(index + m_skipped) : nullptr;
  }
  const IArg* operator[](unsigned int index) const override {
    return index <= GetCount() ? m_all[index + m_skipped] : nullptr;
  }

 private:
  const IArgsList& m_all;
  const unsigned m_skipped;
};

}  // namespace

void AckedCalls::Call(const char* name, const char* args) {
  // Without the first-letter check a log line takes 1.5 % more instructions.
  if (name != nullptr && (*name == 'W' || *name == 'w') && strcasecmp(name, kName) == 0) return Post(args);
  m_messages.Call(name, args);
}

void AckedCalls::Post(const char* args) {
  char queuedName[sizeof kName + InetAddress2::kMaxText];
  char* const address = stpcpy(stpcpy(queuedName, kName), " ");
  const InetAddress2& sender = m_server.Sender();
  InetAddress2::IPToString(address, sender.GetIP(), sender.GetPort());
  ++m_pending;  // before the worker thread can see the call and decrement
  GDOTimerBase::Call(queuedName, args);
}

bool AckedCalls::Dispatch(const char* name, const IArgsList* args) {
  if (strcmp(name, kWakeUp) == 0) return true;
  --m_pending;
  return RunAndAnswer(SenderOf(name), args, true);
}

void AckedCalls::OnParseError(const Velk::IGenericDispatchTarget* target, const char* name,
                              const char* args) {
  if (target == this) {
    --m_pending;
    // m_head keeps CLIENT, NUMBER and NAME. Without NAME, the error is in CLIENT or NUMBER: trust neither.
    m_head.ParseArgs(args);
    if (m_head.GetArgs()->GetCount() == 3) RunAndAnswer(SenderOf(name), m_head.GetArgs(), false);
  }
  // After a call that cannot be parsed, the queue sleeps until the next post, even if calls are pending.
  // Their clients would have to time out and retransmit.
  if (m_pending != 0) m_queue->Post(this, kWakeUp, "");
}

bool AckedCalls::RunAndAnswer(const InetAddress2& sender, const IArgsList* args, bool isParsed) {
  if (args->GetCount() < 2) return false;
  const char* const name = args->GetItem(0)->AsStr();
  uint64_t number;
  if (!IsClientName(name) || !ReadNumber(args->GetItem(1)->AsStr(), &number)) return false;

  AckClients::Client* client = m_clients.Find(name);
  if (client == nullptr && number == 1) client = m_clients.Add(name);
  bool isRefused = false;
  if (client != nullptr && number == client->last + 1) {
    isRefused = !isParsed || !Run(args);
    client->last = number;  // refused calls too: a retransmission would only be refused again
    if (isRefused) ++client->refused;
  }
  Answer(sender, name, client, number);
  return !isRefused;
}

bool AckedCalls::Run(const IArgsList* args) {
  if (args->GetCount() == 2) return true;
  const Rest rest(*args, 3);
  return m_messages.Dispatch(args->GetItem(2)->AsStr(), &rest);
}

// Send failures are not logged: the client retransmits and is answered again. snprintf(3) would take 31 %
// more instructions a call.
void AckedCalls::Answer(const InetAddress2& sender, const char* clientName, const AckClients::Client* client,
                        uint64_t number) {
  char text[sizeof "Ack " + AckClients::kLongestName + size_t{3} * (1 + TextOps::kMaxDigits)];
  const uint64_t numbers[] = {client != nullptr ? client->last : 0, number,
                              client != nullptr ? client->refused : 0};
  char* out = stpcpy(stpcpy(text, "Ack "), clientName);
  for (const uint64_t each : numbers) {
    *out++ = ' ';
    out += TextOps::PutNum(out, each);
  }
  *out = '\0';
  m_server.SendTo(sender, text);
}
