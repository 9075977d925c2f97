// Tool layer: syslogctl dump.
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tools/syslogctl/Commands.h"
#include "tools/syslogctl/Machine.h"
#include "tools/syslogctl/Session.h"

namespace Ctl {
namespace {

using Velk::kSyncPath;

constexpr size_t kMaxFile = 8 << 20;  // 500 lines of 2 KiB are far below

// Which file there is under the path, and since when it is as it is.
struct Version {
  dev_t device = 0;
  ino_t inode = 0;  // 0: there is none
  timespec changed{};

  Version() = default;
  explicit Version(const struct stat& status)
      : device(status.st_dev), inode(status.st_ino), changed(status.st_ctim) {}

  bool operator!=(const Version& other) const {
    return device != other.device || inode != other.inode || changed.tv_sec != other.changed.tv_sec ||
           changed.tv_nsec != other.changed.tv_nsec;
  }
};

Version VersionNow() {
  struct stat status;
  return lstat(kSyncPath, &status) == 0 ? Version(status) : Version();
}

// A file's content.
class Content {
 public:
  Content() = default;
  Content(const Content&) = delete;
  Content& operator=(const Content&) = delete;
  ~Content() { free(m_bytes); }

  // False: errno.
  bool Read(const char* path);

  uid_t Owner() const { return m_owner; }
  const char* Bytes() const { return m_bytes; }
  size_t Size() const { return m_size; }
  const Version& OfVersion() const { return m_version; }

 private:
  bool ReadOpen(int fd);

  Version m_version;
  uid_t m_owner = 0;
  char* m_bytes = nullptr;
  size_t m_size = 0;
};

bool Content::Read(const char* path) {
  // Any program may have put anything under a name in /tmp.
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
  m_version = Version(status);
  m_owner = status.st_uid;
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

bool PrintAll(const Content& content) {
  return fwrite(content.Bytes(), 1, content.Size(), stdout) == content.Size() && fflush(stdout) == 0;
}

// error: of the reading, or 0.
int ExplainFile(int error) {
  if (error == 0 || error == ENOENT) {
    Say("%s is %s: the service cannot write it, so look at its permissions and those of /tmp, or it has "
        "another /tmp, as in a container",
        kSyncPath, error == 0 ? "not the log of now" : "not there");
    return kNotConfirmed;
  }
  if (error == EINVAL || error == ELOOP) {
    Say("%s is no regular file of at most %zu MiB, so not the service's: remove it", kSyncPath,
        kMaxFile >> 20);
  } else {
    Say("cannot read %s: %s", kSyncPath, strerror(error));
  }
  return kUsage;
}

int AskForFile(Session& session) {
  CallText sync;
  (sync << "SyncLog").CallObj();
  const int result = session.Send(sync);
  return result == kDone ? session.Finish() : result;
}

// In a directory that all may write to, any user's file could have the name.
bool IsOfService(const Options& options, const Content& content) {
  const char* const colon = strchr(options.server, ':');
  const auto port = static_cast<unsigned short>(colon != nullptr ? atoi(colon + 1) : Velk::kServicePort);
  unsigned user = 0;
  return content.Owner() == 0 || (FindOwnerOfPort(port, &user) && user == content.Owner());
}

// The service acknowledges the call whether or not it could write the file. What it wrote is another file, or
// has another time, than what was there before.
int GetFile(const Options& options, Session& session, Content& content) {
  // Where it cannot replace the file but only write over it, the time tells the two apart only after a tick
  // of the kernel's clock, which may last 10 ms. So the second try comes later.
  constexpr int kTries = 2;
  constexpr unsigned kPauseMs = 20;
  const Version before = VersionNow();
  for (int i = 0; i < kTries; ++i) {
    if (i != 0) session.Pause(kPauseMs);
    const int result = AskForFile(session);
    if (result != kDone) return result;
    if (!content.Read(kSyncPath)) return ExplainFile(errno);
    if (!IsOfService(options, content)) {
      Say("%s is neither root's nor the service's: it may be forged, so remove it", kSyncPath);
      return kUsage;
    }
    // One without a byte was made, but there was no room to fill it.
    if (content.Size() != 0 && content.OfVersion() != before) return kDone;
  }
  return ExplainFile(0);
}

}  // namespace

int RunDump(const Options& options) {
  if (!IsThisMachine(options.server)) {
    Say("dump reads %s on the service's machine, and %s is another one: run it there", kSyncPath,
        options.server);
    return kUsage;
  }
  Session session(options);
  Content content;
  int result = session.Join(Holding(kFewLines));
  if (result == kDone) result = GetFile(options, session, content);
  if (result != kDone) return result;
  if (PrintAll(content)) return kDone;
  Say("cannot write to standard output: %s", strerror(errno));
  return kUsage;
}

}  // namespace Ctl
