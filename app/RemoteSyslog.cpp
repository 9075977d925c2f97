#include "app/RemoteSyslog.h"

#include "common/DailyLog2.h"
#include "common/LogPrinter.h"

void UseSyslogServer(IDailyLog2* log, const char* address) {
  LogPrinter::Instance()->Log(Info, nullptr, "Using syslog server at UDP %s:514\n", address);
  if (log->EnableSyslog(address, DailyLog2::kSyslogPort)) return;
  LogPrinter::Instance()->Log(Error, nullptr, "Cannot connect to syslog server at UDP %s:514\n", address);
}
