// Tool layer: syslogctl log.
#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include "tools/syslogctl/Commands.h"
#include "tools/syslogctl/LineReader.h"
#include "tools/syslogctl/Session.h"
#include "tools/syslogctl/Text.h"

namespace Ctl {
namespace {

// More than the client sends at once, so that input is read while lines wait. 68 KiB of memory.
constexpr unsigned kHeldLines = 256;

// Shows progress on the terminal after two seconds.
class Progress {
 public:
  explicit Progress(const Options& options) : m_isShown(!options.quiet && isatty(STDERR_FILENO) != 0) {
    struct stat status;
    if (fstat(STDIN_FILENO, &status) == 0 && S_ISREG(status.st_mode)) m_total = status.st_size;
    m_next = time(nullptr) + 2;
  }
  ~Progress() { ShowProgress(""); }
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  // A long line is several calls.
  void Show(unsigned long long lines, unsigned calls, unsigned long long bytes) {
    const time_t now = m_isShown ? time(nullptr) : 0;
    if (!m_isShown || now < m_next) return;
    m_next = now + 1;
    char text[100];
    const int length = snprintf(text, sizeof text, "%llu lines read, %u calls not confirmed", lines, calls);
    if (m_total > 0) {
      snprintf(text + length, sizeof text - static_cast<size_t>(length), ", %.0f %%",
               100.0 * static_cast<double>(bytes) / static_cast<double>(m_total));
    }
    ShowProgress(text);
  }

 private:
  bool m_isShown;
  off_t m_total = 0;  // 0: unknown
  time_t m_next;
};

class Logger {
 public:
  Logger(const Options& options, Session& session) : m_options(options), m_session(session) {}

  int LogWords();
  int LogInput();
  // An interrupt came before the end of the input.
  bool IsCut() const { return m_isCut; }

 private:
  int LogLine(const char* text, size_t length);
  int LogLines(LineReader& reader);
  void WaitForInput();

  const Options& m_options;
  Session& m_session;
  Velk::SimpleString m_text{1024, 1024};
  unsigned long long m_lines = 0;
  bool m_isCut = false;
};

int Logger::LogLine(const char* text, size_t length) {
  m_text.Empty();
  AppendEscapingNul(m_text, text, length);
  ++m_lines;
  const auto level =
      m_options.level != Options::kNoLevel ? static_cast<ELogMessageType>(m_options.level) : Info;
  return m_session.SendLine(level, m_options.module != nullptr ? m_options.module : "syslogctl",
                            m_text.Str());
}

int Logger::LogWords() {
  Velk::SimpleString words;
  for (int i = 0; i < m_options.wordCount; ++i) {
    if (i != 0) words.Append(' ');
    words.Append(m_options.words[i]);
  }
  if (words.IsEmpty()) return LogLine("", 0);
  const char* text = words.Str();
  size_t left = words.Length();
  const char* line;
  size_t length;
  int result = kDone;
  while (result == kDone && TakeLine(&text, &left, &line, &length)) result = LogLine(line, length);
  return result;
}

int Logger::LogLines(LineReader& reader) {
  const char* text;
  size_t length;
  while (reader.Next(&text, &length)) {
    const int result = LogLine(text, length);
    if (result != kDone) return result;
  }
  return kDone;
}

void Logger::WaitForInput() {
  pollfd input{STDIN_FILENO, POLLIN, 0};
  while (input.revents == 0 && !Session::IsInterrupted())
    m_session.Wait(&input, 1, Velk::GDQUdpClient::kForever);
}

int Logger::LogInput() {
  Progress progress(m_options);
  LineReader reader(STDIN_FILENO);
  while (!reader.AtEnd()) {
    WaitForInput();
    if (Session::IsInterrupted()) {
      Say("interrupted before the end of the input");
      m_isCut = true;
      return kDone;
    }
    if (!reader.Read()) {
      Say("cannot read standard input: %s", strerror(errno));
      return kUsage;
    }
    const int result = LogLines(reader);
    if (result != kDone) return result;
    progress.Show(m_lines, m_session.Status().held, reader.BytesRead());
  }
  return kDone;
}

}  // namespace

int RunLog(const Options& options) {
  Session session(options);
  const int joined = session.Join(Holding(kHeldLines));
  if (joined != kDone) return joined;
  Logger logger(options, session);
  const int result = options.wordCount != 0 ? logger.LogWords() : logger.LogInput();
  if (result == kNotConfirmed) return result;
  // Lines that were read are delivered even if a later read failed.
  const int finished = session.Finish();
  if (result != kDone) return result;
  return finished == kDone && logger.IsCut() ? kNotConfirmed : finished;
}

}  // namespace Ctl
