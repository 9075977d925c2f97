#include "common/AtomicFile.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Velk {
namespace {

// Opens a regular file for writing without touching its content, or makes it. -1: refused.
int OpenTarget(const char* path, struct stat& status) {
  constexpr int kFlags = O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
  int fd = open(path, kFlags);
  if (fd < 0 && errno == ENOENT) fd = open(path, kFlags | O_CREAT | O_EXCL, 0666);
  if (fd < 0) return -1;
  if (fstat(fd, &status) == 0 && S_ISREG(status.st_mode)) return fd;
  close(fd);
  errno = EINVAL;
  return -1;
}

// A new file with the owner and permissions of the one it will replace, its name in name. -1: none.
int OpenTemp(const SimpleString& path, const struct stat& target, SimpleString& name) {
  name = path;
  name.Append(".XXXXXX");
  const int fd = mkostemp(name.GetBuffer(name.Length()), O_CLOEXEC);
  if (fd < 0) {
    name.Empty();
    return -1;
  }
  // Only root may give files away; for anyone else the file was the caller's already, or becomes so.
  const int given = fchown(fd, target.st_uid, target.st_gid);
  static_cast<void>(given);
  if (fchmod(fd, target.st_mode & 0777) == 0) return fd;
  close(fd);
  unlink(name.Str());
  name.Empty();
  return -1;
}

}  // namespace

FILE* AtomicFile::Open(const char* path) {
  Discard();
  if (path == nullptr) return nullptr;
  struct stat status {};
  const int target = OpenTarget(path, status);
  if (target < 0) return nullptr;
  m_path = SimpleString(path);
  int fd = OpenTemp(m_path, status, m_temp);
  if (fd >= 0) {
    close(target);
  } else {
    fd = target;
    if (ftruncate(fd, 0) != 0) {
      close(fd);
      return nullptr;
    }
  }
  m_file = fdopen(fd, "w");
  if (m_file == nullptr) {
    close(fd);
    Discard();
  }
  return m_file;
}

bool AtomicFile::Commit() {
  if (m_file == nullptr) return false;
  const bool allWritten = fflush(m_file) == 0 && ferror(m_file) == 0;
  const bool closed = fclose(m_file) == 0;
  m_file = nullptr;
  bool done = allWritten && closed;
  if (done && !m_temp.IsEmpty()) {
    done = rename(m_temp.Str(), m_path.Str()) == 0;
    if (done) m_temp.Empty();
  }
  Discard();
  return done;
}

void AtomicFile::Discard() {
  if (m_file != nullptr) fclose(m_file);
  m_file = nullptr;
  if (!m_temp.IsEmpty()) unlink(m_temp.Str());
  m_temp.Empty();
}

}  // namespace Velk
