#include "common/AtomicFile.h"

#include <ctype.h>
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Velk {
namespace {

// mkostemp(3) replaces each X. RemoveLeftovers() deletes files with such a name, so it must not be one that a
// person would use for a copy.
constexpr char kTempSuffix[] = ".unfinished-XXXXXX";
constexpr size_t kRandomLength = 6;

// Opens a regular file for writing without changing it, or creates it. -1 with errno.
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

bool WriteAt(int fd, const char* data, size_t size, size_t offset) {
  while (size > 0) {
    const ssize_t written = pwrite(fd, data, size, static_cast<off_t>(offset));
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    data += written;
    size -= static_cast<size_t>(written);
    offset += static_cast<size_t>(written);
  }
  return true;
}

enum class Outcome { kDone, kFailed, kRefusedByDirectory };

// Classifies errno after creating or renaming a file. A lack of space, descriptors or memory is kFailed: only
// kRefusedByDirectory lets Replace() overwrite.
Outcome OutcomeOfError() {
  switch (errno) {
    case EACCES:
    case EPERM:
    case EROFS:
    case EBUSY:
    case EXDEV:
    case ENAMETOOLONG:
      return Outcome::kRefusedByDirectory;
    default:
      return Outcome::kFailed;
  }
}

// Gives the new file the old one's owner and mode, and the new content.
bool FillTemp(int fd, const struct stat& old, const char* data, size_t size) {
  // Only root can give files away; otherwise the new file belongs to the caller.
  const int given = fchown(fd, old.st_uid, old.st_gid);
  static_cast<void>(given);
  if (fchmod(fd, old.st_mode & 0777) != 0 || !WriteAt(fd, data, size, 0)) return false;
  // Without fsync(2) some file systems may store the rename before the content.
  return fsync(fd) == 0;
}

// fill(fd) writes the new file.
template <typename Fill>
Outcome ReplaceByRename(const SimpleString& path, Fill fill) {
  SimpleString temp = path;
  temp.Append(kTempSuffix);
  const int fd = mkostemp(temp.GetBuffer(temp.Length()), O_CLOEXEC);
  if (fd < 0) return OutcomeOfError();
  const bool isFilled = fill(fd);
  const bool isClosed = close(fd) == 0;
  if (isFilled && isClosed && rename(temp.Str(), path.Str()) == 0) return Outcome::kDone;
  const Outcome outcome = isFilled && isClosed ? OutcomeOfError() : Outcome::kFailed;
  const int why = errno;
  unlink(temp.Str());
  errno = why;
  return outcome;
}

// Writes the bytes beyond the old end first: if that fails, the old content can be restored.
bool Overwrite(int fd, const struct stat& old, const char* data, size_t size) {
  // In a directory open to others, someone may have made a hard link to another file to get it overwritten.
  if (old.st_nlink != 1) return false;
  const size_t common = old.st_size < static_cast<off_t>(size) ? static_cast<size_t>(old.st_size) : size;
  if (WriteAt(fd, data + common, size - common, common)) {
    return WriteAt(fd, data, common, 0) && ftruncate(fd, static_cast<off_t>(size)) == 0;
  }
  const int restored = ftruncate(fd, old.st_size);
  static_cast<void>(restored);
  return false;
}

bool Replace(const SimpleString& path, const char* data, size_t size) {
  struct stat old {};
  const int target = OpenTarget(path.Str(), old);
  if (target < 0) return false;
  Outcome outcome = ReplaceByRename(path, [&](int fd) { return FillTemp(fd, old, data, size); });
  if (outcome == Outcome::kRefusedByDirectory && Overwrite(target, old, data, size)) outcome = Outcome::kDone;
  close(target);
  return outcome == Outcome::kDone;
}

bool ReplaceAsOwn(const SimpleString& path, const char* data, size_t size) {
  const Outcome outcome =
      ReplaceByRename(path, [&](int fd) { return fchmod(fd, 0644) == 0 && WriteAt(fd, data, size, 0); });
  if (outcome != Outcome::kRefusedByDirectory) return outcome == Outcome::kDone;
  const int why = errno;
  struct stat old {};
  const int target = OpenTarget(path.Str(), old);
  const bool isOurs = target >= 0 && old.st_uid == geteuid() && old.st_nlink == 1;
  const bool isDone = isOurs && fchmod(target, 0644) == 0 && Overwrite(target, old, data, size);
  if (target >= 0) close(target);
  if (!isDone && !isOurs) errno = why;
  return isDone;
}

}  // namespace

FILE* AtomicFile::Open(const char* path) {
  Discard();
  if (path == nullptr) return nullptr;
  m_path = SimpleString(path);
  m_stream = open_memstream(&m_data, &m_size);
  return m_stream;
}

// Closes the stream. False: the content is not complete.
bool AtomicFile::Finish() {
  if (m_stream == nullptr) return false;
  const bool isWhole = fflush(m_stream) == 0 && ferror(m_stream) == 0;
  const bool isClosed = fclose(m_stream) == 0;
  m_stream = nullptr;
  return isWhole && isClosed;
}

bool AtomicFile::Commit() {
  const bool isDone = Finish() && Replace(m_path, m_data, m_size);
  Discard();
  return isDone;
}

bool AtomicFile::CommitAsOwn() {
  const bool isDone = Finish() && ReplaceAsOwn(m_path, m_data, m_size);
  const int why = errno;
  Discard();
  errno = why;
  return isDone;
}

namespace {

bool IsTempOf(const char* name, const char* entry) {
  const size_t length = strlen(name);
  const size_t fixed = strlen(kTempSuffix) - kRandomLength;
  if (strncmp(entry, name, length) != 0 || strncmp(entry + length, kTempSuffix, fixed) != 0) return false;
  const char* const filled = entry + length + fixed;
  const char* end = filled;
  while (isalnum(static_cast<unsigned char>(*end))) ++end;
  return *end == '\0' && end - filled == kRandomLength;
}

}  // namespace

void AtomicFile::RemoveLeftovers(const char* path) {
  const char* const slash = strrchr(path, '/');
  const SimpleString folder =
      slash != nullptr ? SimpleString(path, static_cast<unsigned>(slash - path + 1)) : SimpleString("./");
  DIR* const entries = opendir(folder.Str());
  if (entries == nullptr) return;
  while (const dirent* const entry = readdir(entries)) {
    struct stat status {};
    const char* const name = entry->d_name;
    if (!IsTempOf(slash != nullptr ? slash + 1 : path, name)) continue;
    const bool isOurs = fstatat(dirfd(entries), name, &status, AT_SYMLINK_NOFOLLOW) == 0 &&
                        S_ISREG(status.st_mode) && status.st_uid == geteuid();
    if (isOurs) unlinkat(dirfd(entries), name, 0);
  }
  closedir(entries);
}

void AtomicFile::Discard() {
  if (m_stream != nullptr) fclose(m_stream);
  m_stream = nullptr;
  free(m_data);
  m_data = nullptr;
}

}  // namespace Velk
