#include "app/Service.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <string.h>
#include <strings.h>
#include <unistd.h>

#include "app/AckedCalls.h"
#include "app/ErrReporter.h"
#include "app/MonitorChild.h"
#include "app/PacedServer.h"
#include "app/RemoteMessages.h"
#include "app/RemoteSyslog.h"
#include "common/AppData.h"
#include "common/Console.h"
#include "common/DailyLog2.h"
#include "common/GDQ.h"
#include "common/LogPrinter.h"
#include "common/ServiceNames.h"

namespace {

// The module name of the service's own lines.
constexpr char kName[] = "Syslog";
constexpr unsigned kRingCapacity = 500;  // messages

// Protects the process from the state that it was started in. A closed standard descriptor would be reused by
// the next file or socket, which would then get the console's lines. A closed pipe or a file size limit would
// raise a fatal signal.
void MakeProcessRobust() {
  signal(SIGPIPE, SIG_IGN);
  signal(SIGXFSZ, SIG_IGN);
  // The terminal may hang up, or stop background processes that write to it.
  signal(SIGHUP, SIG_IGN);
  signal(SIGTTOU, SIG_IGN);
  for (int fd = open("/dev/null", O_RDWR); fd >= 0; fd = dup(fd)) {
    if (fd > STDERR_FILENO) {
      close(fd);
      break;
    }
  }
  // A console reader that does not read must not block the supervisor or the receive thread.
  Velk::Console::NeverWaitOnThisThread(kName);
}

void LoadConfiguration() {
  if (AppData::GetInstance()->Load(Velk::kConfigPath)) return;
  LogPrinter::Instance()->Log(Warning, nullptr, "Was not able to load conf options!\n");
}

void EnableConfiguredSyslog(DailyLog2& dailyLog) {
  const char* const type = AppData::GetInstance()->GetVar(Velk::kRemoteLogType, "");
  if (type == nullptr || strcmp(type, Velk::kSyslogServerType) != 0) return;
  const char* const address = AppData::GetInstance()->GetVar(Velk::kRemoteLogAddress, "");
  if (address == nullptr) {
    LogPrinter::Instance()->Log(Error, nullptr, "Cannot load syslog server address!\n");
    return;
  }
  UseSyslogServer(&dailyLog, address);
}

void SelectTrace(int argc, char** argv) {
  LogPrinter* const log = LogPrinter::Instance();
  const bool debug = argc == 2 && strcasecmp(argv[1], "debug") == 0;
  log->Log(
      Info, nullptr,
      debug ? "Debug mode selected, logging also TRACE messages!\n" : "TRACE messages will not be logged!\n");
  log->m_traceEnabled = debug;
}

int Serve(Velk::GDQUdpSrv& server, DailyLog2& dailyLog) {
  if (!server.Open(Velk::kServicePassword, Velk::kServicePort)) {
    const char* const why = strerror(errno);
    LogPrinter::Instance()->Log(Error, nullptr, "UDP port %u: %s\n", Velk::kServicePort, why);
    LogPrinter::Instance()->Log(Error, nullptr, "Unable to open GDQ client!\n");
    return 1;
  }
  // Only after Open(): a second service, which does not get the port, must not remove the first one's files.
  dailyLog.RemoveLeftovers();
  server.ReceiveTask();
  server.Close();
  LogPrinter::Instance()->Log(Info, nullptr, "Exiting syslog main...\n");
  return 0;
}

// Runs the child. Once the worker thread runs, leaves with _exit(2) and destroys nothing: the worker thread
// may be blocked on the console in a handler, so it cannot be stopped, and it still uses the queue and its
// targets.
int RunChild(DailyLog2& dailyLog) {
  LogPrinter::Instance()->Log(Info, nullptr, "Continuing...\n");
  ErrReporter reporter;
  Velk::GDQ queue(0, 0, "AppThread2", false);
  queue.m_errorReporter = &reporter;
  RemoteMessages messages;
  messages.AttachQueue(&queue);
  PacedServer server(queue);
  AckedCalls ackedCalls(messages, server);
  ackedCalls.AttachQueue(&queue);
  reporter.m_ackedCalls = &ackedCalls;
  server.AddListener(&ackedCalls);
  if (!queue.Run()) {
    LogPrinter::Instance()->Log(Error, nullptr, "Unable to open queue!\n");
    return 1;
  }
  _exit(Serve(server, dailyLog));
}

}  // namespace

int RunService(int argc, char** argv) {
  MakeProcessRobust();
  LogPrinter* const log = LogPrinter::Instance();
  log->m_appName.Set(kName, 0);
  LoadConfiguration();
  DailyLog2 dailyLog(kRingCapacity, Velk::kSyncPath);
  EnableConfiguredSyslog(dailyLog);
  log->m_sink = &dailyLog;
  SelectTrace(argc, argv);
  if (!MonitorChild()) {
    log->Log(Info, nullptr, "Exiting application...\n");
    return 1;
  }
  return RunChild(dailyLog);
}
