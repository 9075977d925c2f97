// The remote step of LogPrinter: the one thing in the logging layer that reaches up to the transport.
#include "common/ArgsBuilder2.h"
#include "common/GDQUdpBase.h"
#include "common/LogPrinter.h"

void LogPrinter::SendRemote(ELogMessageType type, const char* module, const char* message) {
  Velk::ArgsBuilder2 call = *m_remoteQueue << "logmsg";
  call << static_cast<int>(type) << module << message;
  call.CallObj();
}

void LogPrinter::SetLogToGDQUdp(Velk::GDQUdpBase* queue) {
  // Always through the singleton, whichever printer is switched: its console is where people look. The queue
  // is attached afterwards, so a peer does not hear about itself.
  LogPrinter::Instance()->Log(Info, nullptr, "UDP remote logging enabled\n");
  m_mutex.Lock();
  m_remoteQueue = queue;
  m_mutex.Unlock();
}
