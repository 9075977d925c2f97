// Tool layer: syslogctl watch.
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
#include "tools/syslogctl/Shown.h"
#include "tools/syslogctl/Text.h"

namespace Ctl {
namespace {

// A call of another program.
struct Heard {
  const char* name;
  const char* rawArgs;
  const Velk::IArgsList* args;  // null: neither we nor the service can parse them

  unsigned Count() const { return args != nullptr ? args->GetCount() : 0; }
  const char* Text(unsigned index) const { return args->GetItem(index)->AsStr(); }
  // Ignores case: a peer that forwards its log spells it "logmsg".
  bool IsLogLine() const { return strcasecmp(name, "LogMsg") == 0 && Count() == 3; }
  long long Type() const { return args->GetItem(0)->AsInt(); }
  const Level& LogLevel() const { return LevelOf(Type()); }
};

// A listener of the client, called by Process() on the main thread.
class Printer final : public Velk::GDOBase {
 public:
  explicit Printer(const Options& options)
      : m_options(options), m_isColored(isatty(STDOUT_FILENO) != 0 && getenv("NO_COLOR") == nullptr) {}

  void Call(const char* name, const char* args) override;
  bool IsDone() const { return m_options.count != 0 && m_printed >= m_options.count; }

 private:
  bool IsWanted(const Heard& heard) const;
  void WriteJson(const Heard& heard);
  void WriteTime();
  void WriteLogLine(const Heard& heard);
  void WriteCall(const Heard& heard);

  const Options& m_options;
  bool m_isColored;
  unsigned long m_printed = 0;
  Velk::ArgsParser m_parser{Velk::GDQ::kMaxArgs};
  Velk::SimpleString m_line{1024, 1024};
};

void Printer::Call(const char* name, const char* args) {
  if (*name == '\0' || strcasecmp(name, "Ack") == 0 || IsDone()) return;
  const Heard heard{name, args, m_parser.ParseArgs(args) ? m_parser.GetArgs() : nullptr};
  if (!IsWanted(heard)) return;
  ++m_printed;
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

// With -l or -t only lines of the log are shown.
bool Printer::IsWanted(const Heard& heard) const {
  if (m_options.module == nullptr && m_options.level == Options::kNoLevel) return true;
  return heard.IsLogLine() && IsShown(m_options, heard.Type(), heard.Text(1), strlen(heard.Text(1)));
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
  AppendField(m_line, "call", heard.name);
  if (heard.args == nullptr) {
    AppendField(m_line, "unreadable", heard.rawArgs);
  } else {
    m_line.Append(",\"args\":[");
    for (unsigned i = 0; i < heard.Count(); ++i) {
      if (i != 0) m_line.Append(',');
      AppendJson(m_line, heard.Text(i));
    }
    m_line.Append(']');
  }
  if (heard.IsLogLine()) {
    AppendField(m_line, "level", heard.LogLevel().name);
    AppendField(m_line, "module", heard.Text(1));
    AppendField(m_line, "text", heard.Text(2));
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
  Printer printer(options);  // must outlive the client, which keeps a pointer to it
  Session session(options);
  session.Client().AddListener(&printer);
  Velk::GDQUdpClient::Options how = Holding(kFewLines);
  how.listen = true;
  int result = session.Join(how);
  // Only an acknowledged call proves that we are admitted, and so hear the calls of others.
  if (result == kDone) result = session.Send("");
  if (result == kDone) result = session.Finish();
  if (result != kDone) return result;
  if (!options.quiet) Say("listening to the calls at %s", options.server);
  while (!Session::IsInterrupted() && !printer.IsDone()) {
    session.Wait(Velk::GDQUdpClient::kForever);
    session.TellChanges();
    if (!FlushOutput()) return kUsage;
  }
  return kDone;
}

}  // namespace Ctl
