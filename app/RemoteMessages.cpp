#include "app/RemoteMessages.h"

#include <string.h>

#include "app/RemoteSyslog.h"
#include "common/AppData.h"
#include "common/LogPrinter.h"
#include "common/ServiceNames.h"

using Velk::kRemoteLogAddress;
using Velk::kRemoteLogType;

RemoteMessages::RemoteMessages() {
  AddHandler("SetVar", &RemoteMessages::SetVar);
  AddHandler("SyncVar", &RemoteMessages::SyncVar);
  AddHandler("LogMsg", &RemoteMessages::LogMsg);
  AddHandler("SyncLog", &RemoteMessages::SyncLog);
}

bool RemoteMessages::SetVar(const Velk::IArgsList* args) {
  if (args == nullptr || args->GetCount() != 2) return false;
  const char* const name = args->GetItem(0)->AsStr();
  const char* const value = args->GetItem(1)->AsStr();
  LogPrinter::Instance()->Log(Trace, nullptr, "SetVar(%s=%s)\n", name, value);
  AppData::GetInstance()->SetVar(name, value);
  return true;
}

bool RemoteMessages::SyncVar(const Velk::IArgsList*) {
  LogPrinter* const log = LogPrinter::Instance();
  AppData* const data = AppData::GetInstance();
  log->Log(Trace, nullptr, "SyncVar()\n");
  if (!data->IsVarChanged(kRemoteLogType) && !data->IsVarChanged(kRemoteLogAddress)) return true;

  const char* const type = data->GetVar(kRemoteLogType, "");
  const char* const address = data->GetVar(kRemoteLogAddress, "");
  if (type != nullptr && strcmp(type, Velk::kSyslogServerType) == 0 && address != nullptr) {
    // A missing address reads as "": it fails to resolve, and forwarding stays as it was.
    UseSyslogServer(log->m_sink, address);
    return true;
  }
  log->Log(Info, nullptr, "Remote syslog server logging disabled\n");
  log->m_sink->DisableSyslog();
  return true;
}

bool RemoteMessages::LogMsg(const Velk::IArgsList* args) {
  if (args == nullptr || args->GetCount() != 3) return false;
  // The type is not checked: the printer and its sink handle unknown ones. LogText() does not format, so a
  // peer's percent signs are plain text.
  const auto type = static_cast<ELogMessageType>(args->GetItem(0)->AsInt());
  LogPrinter::Instance()->LogText(type, args->GetItem(1)->AsStr(), args->GetItem(2)->AsStr());
  return true;
}

bool RemoteMessages::SyncLog(const Velk::IArgsList*) {
  LogPrinter* const log = LogPrinter::Instance();
  if (log->m_sink != nullptr) log->m_sink->SyncLog();
  log->Log(Trace, nullptr, "SyncLog()\n");
  return true;
}
