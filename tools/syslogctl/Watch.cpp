// Tool layer: syslogctl watch.
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include "common/ArgsParser.h"
#include "common/GDOBase.h"
#include "common/GDQ.h"
#include "common/TimeStamp.h"
#include "tools/syslogctl/Commands.h"
#include "tools/syslogctl/Session.h"
#include "tools/syslogctl/Text.h"

namespace Ctl {
namespace {

struct Level {
  const char* word;   // as the service's console has it
  const char* name;   // as the tool's options and JSON have it
  const char* color;  // SGR sequence
};

const Level& LevelOf(long long type) {
  static const Level kLevels[] = {
      {"Trace", "trace", "\033[2m"},      {"Info", "info", ""},
      {"Warning", "warning", "\033[33m"}, {"ERROR", "error", "\033[1;31m"},
      {"Nothing", "nothing", "\033[2m"},  // the service drops other types
  };
  return kLevels[type >= Trace && type <= Error ? type : Error + 1];
}

// One heard call.
struct Heard {
  const char* name;
  const char* rawArgs;
  const Velk::IArgsList* args;  // null: the service can't read them either

  unsigned Count() const { return args != nullptr ? args->GetCount() : 0; }
  const char* Text(unsigned index) const { return args->GetItem(index)->AsStr(); }
  // The name is the printer's too: a program that has its whole log forwarded says "logmsg".
  bool IsLogLine() const { return strcasecmp(name, "LogMsg") == 0 && Count() == 3; }
  const Level& LogLevel() const { return LevelOf(args->GetItem(0)->AsInt()); }
};

// A listener of the client, called within Process().
class Printer final : public Velk::GDOBase {
 public:
  explicit Printer(const Options& options)
      : m_options(options), m_isColored(isatty(STDOUT_FILENO) != 0 && getenv("NO_COLOR") == nullptr) {}

  void Call(const char* name, const char* args) override;
  bool IsDone() const { return m_options.count != 0 && m_printed >= m_options.count; }
  // False: what is printed can no longer be read.
  bool Flush() { return fflush(stdout) == 0 && ferror(stdout) == 0; }

 private:
  void WriteJson(const Heard& heard);
  void WriteTime();
  void WriteLogLine(const Heard& heard);
  void WriteCall(const Heard& heard);
  void Field(const char* name, const char* value);

  const Options& m_options;
  bool m_isColored;
  unsigned long m_printed = 0;
  Velk::ArgsParser m_parser{Velk::GDQ::kMaxArgs};
  Velk::SimpleString m_line{1024, 1024};
};

void Printer::Call(const char* name, const char* args) {
  if (*name == '\0' || strcasecmp(name, "Ack") == 0 || IsDone()) return;
  ++m_printed;
  const Heard heard{name, args, m_parser.ParseArgs(args) ? m_parser.GetArgs() : nullptr};
  m_line.Empty();
  if (m_options.json) {
    WriteJson(heard);
  } else if (heard.IsLogLine()) {
    WriteLogLine(heard);
  } else {
    WriteCall(heard);
  }
  m_line.Append('\n');
  fwrite(m_line.Str(), 1, m_line.Length(), stdout);
}

void Printer::Field(const char* name, const char* value) {
  m_line.Append(',');
  AppendJson(m_line, name);
  m_line.Append(':');
  AppendJson(m_line, value);
}

void Printer::WriteJson(const Heard& heard) {
  timeval now{};
  gettimeofday(&now, nullptr);
  tm utc{};
  gmtime_r(&now.tv_sec, &utc);
  char time[40];
  const size_t length = strftime(time, sizeof time, "%Y-%m-%dT%H:%M:%S", &utc);
  snprintf(time + length, sizeof time - length, ".%03dZ", static_cast<int>(now.tv_usec / 1000));
  m_line.Append("{\"time\":");
  AppendJson(m_line, time);
  Field("call", heard.name);
  if (heard.args == nullptr) {
    Field("unreadable", heard.rawArgs);
  } else {
    m_line.Append(",\"args\":[");
    for (unsigned i = 0; i < heard.Count(); ++i) {
      if (i != 0) m_line.Append(',');
      AppendJson(m_line, heard.Text(i));
    }
    m_line.Append(']');
  }
  if (heard.IsLogLine()) {
    Field("level", heard.LogLevel().name);
    Field("module", heard.Text(1));
    Field("text", heard.Text(2));
  }
  m_line.Append('}');
}

void Printer::WriteTime() {
  char time[Velk::TimeStamp::kLength];
  Velk::TimeStamp::Put(time);
  m_line.Append(time, sizeof time).Append(' ');
}

void Printer::WriteLogLine(const Heard& heard) {
  const Level& level = heard.LogLevel();
  const bool isColored = m_isColored && *level.color != '\0';
  WriteTime();
  if (isColored) m_line.Append(level.color);
  AppendPrintable(m_line, *heard.Text(1) != '\0' ? heard.Text(1) : "Syslog");
  m_line.Append('.').Append(level.word).Append(": ");
  Velk::SimpleString text(heard.Text(2));
  text.TrimRight();
  AppendPrintable(m_line, text.Str());
  if (isColored) m_line.Append("\033[0m");
}

void Printer::WriteCall(const Heard& heard) {
  WriteTime();
  if (m_isColored) m_line.Append("\033[36m");
  AppendPrintable(m_line, heard.name);
  if (m_isColored) m_line.Append("\033[0m");
  for (unsigned i = 0; i < heard.Count(); ++i) {
    m_line.Append(" '");
    AppendPrintable(m_line, heard.Text(i));
    m_line.Append('\'');
  }
  if (heard.args != nullptr) return;
  m_line.Append(" (unreadable arguments) ");
  AppendPrintable(m_line, heard.rawArgs);
}

}  // namespace

int RunWatch(const Options& options) {
  Printer printer(options);  // outlives the client, which does not let go of it
  Session session(options);
  session.Client().AddListener(&printer);
  Velk::GDQUdpClient::Options how = Holding(kFewLines);
  how.listen = true;
  int result = session.Join(how);
  // Only a call that is answered shows that we are admitted, and so hear what others call.
  if (result == kDone) result = session.Send("");
  if (result == kDone) result = session.Finish();
  if (result != kDone) return result;
  if (!options.quiet) Say("listening to the calls at %s", options.server);
  while (!Session::IsInterrupted() && !printer.IsDone()) {
    session.Wait(Velk::GDQUdpClient::kForever);
    session.TellChanges();
    if (printer.Flush()) continue;
    Say("cannot write to standard output: %s", strerror(errno));
    return kUsage;
  }
  return kDone;
}

}  // namespace Ctl
