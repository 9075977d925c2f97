// Tool layer: syslogctl dump.
#include <stdio.h>
#include <unistd.h>

#include "common/ServiceNames.h"
#include "tools/syslogctl/Commands.h"
#include "tools/syslogctl/Machine.h"
#include "tools/syslogctl/Session.h"
#include "tools/syslogctl/Shown.h"
#include "tools/syslogctl/StoredLine.h"
#include "tools/syslogctl/SyncFile.h"
#include "tools/syslogctl/Text.h"

namespace Ctl {
namespace {

class Dump {
 public:
  Dump(const Options& options, Session& session) : m_options(options), m_session(session) {}

  // Prints the wanted lines, or only the last m_options.count.
  int PrintStored();
  // Prints new lines until interrupted.
  int Follow();

 private:
  bool IsWanted(const StoredLine& line) const;
  unsigned long CountWanted(const SyncFile& file) const;
  void Print(const StoredLine& line);
  void WriteJson(const StoredLine& line);
  void WritePrintable(const StoredLine& line);
  const char* TextOf(const RecordPart& part);

  const Options& m_options;
  Session& m_session;
  const bool m_isTerminal = isatty(STDOUT_FILENO) != 0;
  SyncFile m_files[2];
  unsigned m_latest = 0;  // index into m_files
  Velk::SimpleString m_line{1024, 1024};
  Velk::SimpleString m_part{1024, 1024};
};

bool Dump::IsWanted(const StoredLine& line) const {
  return (m_options.all || !line.IsOverhead()) &&
         IsShown(m_options, line.level, line.module.begin, line.module.length);
}

unsigned long Dump::CountWanted(const SyncFile& file) const {
  unsigned long count = 0;
  StoredLine line{};
  for (const char* at = file.Begin(); TakeStored(&at, file.End(), &line);) count += IsWanted(line) ? 1 : 0;
  return count;
}

// The part, ended by a NUL. Valid until the next call.
const char* Dump::TextOf(const RecordPart& part) {
  m_part.Empty();
  AppendEscapingNul(m_part, part.begin, part.length);
  return m_part.Str();
}

void Dump::WriteJson(const StoredLine& line) {
  m_line.Append("{\"time\":");
  AppendJson(m_line, TextOf(line.Time()));
  if (line.level != Options::kNoLevel) {
    AppendField(m_line, "level", LevelOf(line.level).name);
    AppendField(m_line, "module", TextOf(line.module));
  }
  AppendField(m_line, "text", TextOf(line.text));
  m_line.Append("}\n");
}

void Dump::WritePrintable(const StoredLine& line) {
  const char* text = line.begin;
  auto left = static_cast<size_t>(line.end - line.begin);
  const char* row;
  size_t length;
  while (TakeLine(&text, &left, &row, &length)) {
    AppendPrintable(m_line, TextOf({row, length}));
    m_line.Append('\n');
  }
}

void Dump::Print(const StoredLine& line) {
  if (!m_options.json && !m_isTerminal) {
    fwrite(line.begin, 1, static_cast<size_t>(line.end - line.begin), stdout);
    return;
  }
  m_line.Empty();
  if (m_options.json) {
    WriteJson(line);
  } else {
    WritePrintable(line);
  }
  fwrite(m_line.Str(), 1, m_line.Length(), stdout);
}

int Dump::PrintStored() {
  SyncFile& file = m_files[m_latest];
  const int result = file.Get(m_options, m_session, false);
  if (result != kDone) return result;
  const unsigned long wanted = CountWanted(file);
  unsigned long skipped = m_options.count != 0 && wanted > m_options.count ? wanted - m_options.count : 0;
  StoredLine line{};
  for (const char* at = file.Begin(); TakeStored(&at, file.End(), &line);) {
    if (!IsWanted(line)) continue;
    if (skipped != 0) {
      --skipped;
    } else {
      Print(line);
    }
  }
  if (wanted == 0 && !m_options.follow && !m_options.quiet) {
    Say("no matching lines%s", m_options.all ? "" : "; --all may show some");
  }
  return FlushOutput() ? kDone : kUsage;
}

int Dump::Follow() {
  constexpr unsigned kPauseMs = 1000;
  for (;;) {
    m_session.Pause(kPauseMs);
    SyncFile& old = m_files[m_latest];
    SyncFile& now = m_files[1 - m_latest];
    const int result = Session::IsInterrupted() ? kDone : now.Get(m_options, m_session, true);
    if (Session::IsInterrupted() || result != kDone) return result;
    bool isSure = false;
    const char* at = FirstNew(old.Begin(), old.End(), now.Begin(), now.End(), &isSure);
    if (!isSure)
      Say("lines may be missing here: the service restarted, or overwrote lines before we read them");
    StoredLine line{};
    while (TakeStored(&at, now.End(), &line)) {
      if (IsWanted(line)) Print(line);
    }
    if (!FlushOutput()) return kUsage;
    m_latest = 1 - m_latest;
  }
}

}  // namespace

int RunDump(const Options& options) {
  if (!IsThisMachine(options.server)) {
    Say("dump reads %s on the service's machine; %s is not this machine: run it there", Velk::kSyncPath,
        options.server);
    return kUsage;
  }
  Session session(options);
  int result = session.Join(Holding(kFewLines));
  if (result != kDone) return result;
  Dump dump(options, session);
  result = dump.PrintStored();
  return result == kDone && options.follow ? dump.Follow() : result;
}

}  // namespace Ctl
