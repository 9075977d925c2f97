// Tool layer: syslogctl status.
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>

#include "common/IniFile3.h"
#include "common/ServiceNames.h"
#include "tools/syslogctl/Commands.h"
#include "tools/syslogctl/Machine.h"
#include "tools/syslogctl/Process.h"
#include "tools/syslogctl/Session.h"
#include "tools/syslogctl/Shown.h"
#include "tools/syslogctl/StoredLine.h"
#include "tools/syslogctl/SyncFile.h"
#include "tools/syslogctl/Text.h"

namespace Ctl {
namespace {

using Velk::SimpleString;

// What the service's own lines in the log say about it.
class History {
 public:
  explicit History(const SyncFile& file);

  // The log goes back to the start of the service.
  bool IsWhole() const { return m_isWhole; }
  // The log goes back to the start of the child. A new child forwards as configured.
  bool HasStart() const { return m_starts != 0; }
  unsigned Restarts() const { return m_starts != 0 ? m_starts - 1 : 0; }
  // Forwarding was changed since the start of the child.
  bool HasTarget() const { return m_hasTarget; }
  const SimpleString& Target() const { return m_target; }  // empty: nowhere

 private:
  void Read(const SimpleString& text);
  void SetTarget(const char* host, size_t length);

  bool m_isWhole = false;
  unsigned m_starts = 0;
  bool m_hasTarget = false;
  bool m_hadTarget = false;
  SimpleString m_target;
  SimpleString m_earlier;
};

History::History(const SyncFile& file) {
  StoredLine line{};
  SimpleString text;
  for (const char* at = file.Begin(); TakeStored(&at, file.End(), &line);) {
    if (line.module.length != 6 || memcmp(line.module.begin, "Syslog", 6) != 0) continue;
    text.Empty();
    AppendEscapingNul(text, line.text.begin, line.text.length);
    Read(text);
  }
}

void History::SetTarget(const char* host, size_t length) {
  m_hadTarget = m_hasTarget;
  m_earlier = m_target;
  m_hasTarget = true;
  m_target.Set(host, static_cast<unsigned>(length));
}

// The lines are those of Service.cpp, MonitorChild.cpp, RemoteMessages.cpp and RemoteSyslog.cpp in app/.
void History::Read(const SimpleString& text) {
  static const char kUsing[] = "Using syslog server at UDP ";
  const char* const line = text.Str();
  if (strncmp(line, "TRACE messages will", 19) == 0 || strncmp(line, "Debug mode selected", 19) == 0) {
    m_isWhole = true;  // the service's first line
    m_starts = 0;
  } else if (strcmp(line, "Start child...") == 0) {
    ++m_starts;
    m_hasTarget = false;
  } else if (strncmp(line, kUsing, sizeof kUsing - 1) == 0) {
    const char* const host = line + sizeof kUsing - 1;
    SetTarget(host, strcspn(host, ":"));
  } else if (strncmp(line, "Remote syslog server logging disabled", 37) == 0) {
    SetTarget("", 0);
  } else if (strncmp(line, "Cannot connect to syslog server", 31) == 0) {
    m_hasTarget = m_hadTarget;  // the service keeps the previous target
    m_target = m_earlier;
  }
}

void PrintSince(const char* what, const Process& process) {
  char text[32];
  tm local{};
  localtime_r(&process.start, &local);
  strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local);
  const auto seconds = static_cast<unsigned long>(time(nullptr) - process.start);
  printf("%-12s since %s, for %lu:%02lu:%02lu, process %d\n", what, text, seconds / 3600, seconds / 60 % 60,
         seconds % 60, static_cast<int>(process.pid));
}

void PrintMemory(pid_t child, pid_t supervisor) {
  unsigned long pss[2];
  unsigned long rss[2];
  if (!ReadMemory(child, &pss[0], &rss[0]) || !ReadMemory(supervisor, &pss[1], &rss[1])) return;
  printf("%-12s RSS %lu + %lu KiB", "memory", rss[1], rss[0]);
  if (pss[0] != 0 && pss[1] != 0) {
    printf(", PSS %lu + %lu KiB\n", pss[1], pss[0]);
  } else {
    printf("; only root can read PSS\n");
  }
}

// Whether the configuration file has changed since the service read it.
bool IsConfigurationNew(const Process& supervisor) {
  constexpr time_t kMostSeconds = 2;  // the start, in whole seconds, can be this much too early
  struct stat status;
  return supervisor.start != 0 && stat(Velk::kConfigPath, &status) == 0 &&
         status.st_mtime > supervisor.start + kMostSeconds;
}

void PrintForwarding(const History* history, const Process& supervisor) {
  IniFile3 file;
  const bool isLogged = history != nullptr && history->HasTarget();
  if (!isLogged && IsConfigurationNew(supervisor)) {
    printf("%-12s not known: %s has changed since the start\n", "forwards to", Velk::kConfigPath);
    return;
  }
  SimpleString target;
  if (isLogged) {
    AppendPrintable(target, history->Target().Str());
  } else if (file.Load(Velk::kConfigPath) != 0 &&
             strcmp(file.GetString("Data", Velk::kRemoteLogType, ""), Velk::kSyslogServerType) == 0) {
    AppendPrintable(target, file.GetString("Data", Velk::kRemoteLogAddress, ""));
  }
  const bool isSure = isLogged || (history != nullptr && history->HasStart());
  printf("%-12s %s%s%s\n", "forwards to", isSure ? "" : "not known from the log; at start ",
         target.IsEmpty() ? "nowhere" : target.Str(), isLogged ? "" : ", as configured");
}

void PrintRestarts(const History* history, bool hasLostChild) {
  const bool isKnown = history != nullptr && history->IsWhole();
  if (isKnown || !hasLostChild) {
    printf("%-12s %u\n", "restarts", isKnown ? history->Restarts() : 0);
  } else {
    printf("%-12s not known from the log\n", "restarts");
  }
}

void PrintMachine(const Options& options, const History* history) {
  Port port{};
  Process child{};
  Process supervisor{};
  if (!FindPort(PortOf(options.server), &port)) {
    printf("%-12s no program uses UDP port %u here\n", "processes", PortOf(options.server));
    return;
  }
  const bool isKnown = FindServing(port.inode, &child) && ReadProcess(child.parent, &supervisor);
  if (isKnown) {
    PrintSince("running", supervisor);
    PrintSince("serving", child);
    PrintRestarts(history, supervisor.hasLostChild);
  } else {
    printf("%-12s hidden: in a container, or visible to root only\n", "processes");
  }
  PrintForwarding(history, supervisor);
  printf("%-12s %lu datagrams since it started serving\n", "dropped", port.drops);
  if (isKnown) PrintMemory(child.pid, supervisor.pid);
}

int Measure(Session& session, unsigned long long* micros) {
  int result = session.Join(Holding(kFewLines));
  const unsigned long long begin = NowUs();
  if (result == kDone) result = session.Send("");
  if (result == kDone) result = session.Finish();
  *micros = NowUs() - begin;
  return result;
}

}  // namespace

int RunStatus(const Options& options) {
  Session session(options);
  unsigned long long micros = 0;
  const int result = Measure(session, &micros);
  if (options.quiet) return result;
  printf("%-12s %s", options.server, result == kDone ? "serves" : "does not serve");
  if (result == kDone) printf(", round trip %.3f ms", static_cast<double>(micros) / 1000);
  if (!IsThisMachine(options.server)) {
    printf("\nThis is another machine: processes, restarts, forwarding, drops and memory are unknown.\n");
  } else {
    putchar('\n');
    SyncFile file;
    const bool hasLog = result == kDone && file.Get(options, session, false) == kDone;
    const History history(file);
    PrintMachine(options, hasLog ? &history : nullptr);
  }
  return FlushOutput() ? result : kUsage;
}

}  // namespace Ctl
