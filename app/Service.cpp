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

namespace {

// What the lines of the service itself are marked with.
constexpr char kName[] = "Syslog";

// Nothing that the service was started with must end it or go wrong: a closed standard descriptor would be
// given to the next file or socket, which would then get the console's lines; a reader that left, or a file
// size limit, would send a deadly signal.
void MakeProcessRobust() {
  signal(SIGPIPE, SIG_IGN);
  signal(SIGXFSZ, SIG_IGN);
  // Nor may the terminal that it was started from: one that hangs up, or that stops who writes in the
  // background.
  signal(SIGHUP, SIG_IGN);
  signal(SIGTTOU, SIG_IGN);
  for (int fd = open("/dev/null", O_RDWR); fd >= 0; fd = dup(fd)) {
    if (fd > STDERR_FILENO) {
      close(fd);
      break;
    }
  }
  // The supervisor must restart, and the receive thread receive, also while the console's reader does not
  // read.
  Velk::Console::NeverWaitOnThisThread(kName);
}

void LoadConfiguration(const char* path) {
  if (AppData::GetInstance()->Load(path)) return;
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

int Serve(const ServiceValues& values, Velk::GDQUdpSrv& server, DailyLog2& dailyLog) {
  if (!server.Open(values.password, values.port)) {
    const char* const why = strerror(errno);
    LogPrinter::Instance()->Log(Error, nullptr, "UDP port %u: %s\n", values.port, why);
    LogPrinter::Instance()->Log(Error, nullptr, "Unable to open GDQ client!\n");
    return 1;
  }
  // Only here: a second service, which does not get the port, must leave alone what the first is writing.
  dailyLog.RemoveLeftovers();
  server.ReceiveTask();
  server.Close();
  LogPrinter::Instance()->Log(Info, nullptr, "Exiting syslog main...\n");
  return 0;
}

// The child's life. Ends the process with all objects in place once the worker thread runs: that may wait in
// a handler for the console's reader, so it can't be stopped, and must find the queue and its targets.
int RunChild(const ServiceValues& values, DailyLog2& dailyLog) {
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
  _exit(Serve(values, server, dailyLog));
}

}  // namespace

int RunService(const ServiceValues& values, int argc, char** argv) {
  MakeProcessRobust();
  LogPrinter* const log = LogPrinter::Instance();
  log->m_appName.Set(kName, 0);
  LoadConfiguration(values.configPath);
  DailyLog2 dailyLog(values.ringCapacity, values.syncPath);
  EnableConfiguredSyslog(dailyLog);
  log->m_sink = &dailyLog;
  SelectTrace(argc, argv);
  if (!MonitorChild()) {
    log->Log(Info, nullptr, "Exiting application...\n");
    return 1;
  }
  return RunChild(values, dailyLog);
}
