// syslogctl dump
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include "common/TimeStamp.h"
#include "tools/syslogctl/Commands.h"
#include "tools/syslogctl/Machine.h"
#include "tools/syslogctl/Session.h"
#include "tools/syslogctl/Text.h"

namespace Ctl {
namespace {

constexpr char kPath[] = "/tmp/synclog";
constexpr size_t kMaxFile = 8 << 20;  // 500 lines of 2 KiB are far below

// A file's content, and why there is none.
class Content {
 public:
  Content() = default;
  Content(const Content&) = delete;
  Content& operator=(const Content&) = delete;
  ~Content() { free(m_bytes); }

  // False: errno.
  bool Read(const char* path);

  const char* Bytes() const { return m_bytes; }
  size_t Size() const { return m_size; }

 private:
  bool ReadOpen(int fd);

  char* m_bytes = nullptr;
  size_t m_size = 0;
};

bool Content::Read(const char* path) {
  // Anybody may have put anything under a name in /tmp.
  const int fd = open(path, O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY);
  if (fd < 0) return false;
  const bool isRead = ReadOpen(fd);
  const int error = errno;
  close(fd);
  errno = error;
  return isRead;
}

bool Content::ReadOpen(int fd) {
  struct stat status;
  if (fstat(fd, &status) != 0) return false;
  if (!S_ISREG(status.st_mode) || status.st_size > static_cast<off_t>(kMaxFile)) {
    errno = EINVAL;
    return false;
  }
  const auto size = static_cast<size_t>(status.st_size);
  char* const bytes = static_cast<char*>(realloc(m_bytes, size + 1));
  if (bytes == nullptr) return false;
  m_bytes = bytes;
  m_size = 0;
  while (m_size < size) {
    const ssize_t count = read(fd, m_bytes + m_size, size - m_size);
    if (count < 0) return false;
    if (count == 0) break;
    m_size += static_cast<size_t>(count);
  }
  return true;
}

constexpr char kModule[] = "syslogctl";

// Nobody answers a call, and the file may be an older one, or one that another program has just asked for. So
// a line that only we know goes into the log, and the file that has it is ours.
struct Mark {
  static constexpr char kWord[] = "dump ";
  static constexpr int kDigits = 16;
  char text[sizeof kWord + kDigits];

  Mark() {
    unsigned long long number = 0;
    if (getrandom(&number, sizeof number, GRND_NONBLOCK) < 0)
      number = static_cast<unsigned long long>(getpid());
    snprintf(text, sizeof text, "%s%0*llx", kWord, kDigits, number);
  }

  // The stored line is a mark, of this dump or of another one; both are of no interest to who reads the log.
  static bool IsMark(const char* line, size_t length) {
    char begin[64];
    const int beginLength = snprintf(begin, sizeof begin, " %s.Info: %s", kModule, kWord);
    const auto behindTime = static_cast<size_t>(Velk::TimeStamp::kLength);
    return length == behindTime + static_cast<size_t>(beginLength + kDigits) + 1 &&
           memcmp(line + behindTime, begin, static_cast<size_t>(beginLength)) == 0;
  }
};

int AskForFile(Session& session, const Mark& mark) {
  CallText sync;
  (sync << "SyncLog").CallObj();
  const int result = session.SendLine(Info, kModule, mark.text);
  return result == kDone ? session.Send(sync) : result;
}

bool HasMark(const Content& content, const Mark& mark) {
  return content.Size() != 0 &&
         memmem(content.Bytes(), content.Size(), mark.text, strlen(mark.text)) != nullptr;
}

bool PrintWithoutMarks(const Content& content) {
  const char* text = content.Bytes();
  size_t left = content.Size();
  const char* line;
  size_t length;
  for (const char* begin = text; TakeLine(&text, &left, &line, &length); begin = text) {
    const auto whole = static_cast<size_t>(text - begin);
    if (!Mark::IsMark(begin, whole) && fwrite(begin, 1, whole, stdout) != whole) return false;
  }
  return fflush(stdout) == 0;
}

// error: of the last reading, or 0.
int ExplainFile(int error) {
  if (error == 0 || error == ENOENT) {
    Say("%s is %s: the service cannot write it, so look at its permissions and those of /tmp, or it has "
        "another "
        "/tmp, as in a container",
        kPath, error == 0 ? "not the log of now" : "not there");
    return kNotConfirmed;
  }
  if (error == EINVAL || error == ELOOP) {
    Say("%s is no regular file of at most %zu MiB, so not the service's: remove it", kPath, kMaxFile >> 20);
  } else {
    Say("cannot read %s: %s", kPath, strerror(error));
  }
  return kUsage;
}

int WaitForFile(const Options& options, Session& session, const Mark& mark, Content& content) {
  constexpr unsigned kPauseMs = 20;
  const unsigned tries = options.timeoutMs / kPauseMs + 1;
  int error = ENOENT;
  for (unsigned i = 0; i < tries && !Session::IsInterrupted(); ++i) {
    error = content.Read(kPath) ? 0 : errno;
    if (error == 0 && HasMark(content, mark)) return kDone;
    session.Pause(kPauseMs);
  }
  return ExplainFile(error);
}

}  // namespace

int RunDump(const Options& options) {
  if (!IsThisMachine(options.server)) {
    Say("dump reads %s on the service's machine, and %s is another one: run it there", kPath, options.server);
    return kUsage;
  }
  Session session(options);
  const Mark mark;
  Content content;
  int result = session.Join(Holding(kFewLines));
  if (result == kDone) result = AskForFile(session, mark);
  if (result == kDone) result = WaitForFile(options, session, mark, content);
  if (result != kDone) return result;
  if (PrintWithoutMarks(content)) return kDone;
  Say("cannot write to standard output: %s", strerror(errno));
  return kUsage;
}

}  // namespace Ctl
