#include "tools/syslogctl/SyncFile.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include "common/ServiceNames.h"
#include "tools/syslogctl/Machine.h"

namespace Ctl {

using Velk::kSyncPath;

namespace {

constexpr size_t kMaxFile = 8 << 20;  // far more than 500 lines of 2 KiB

}  // namespace

SyncFile::Version::Version(const struct stat& status)
    : device(status.st_dev), inode(status.st_ino), changed(status.st_ctim) {}

bool SyncFile::Version::operator!=(const Version& other) const {
  return device != other.device || inode != other.inode || changed.tv_sec != other.changed.tv_sec ||
         changed.tv_nsec != other.changed.tv_nsec;
}

SyncFile::Version SyncFile::VersionNow() {
  struct stat status;
  return lstat(kSyncPath, &status) == 0 ? Version(status) : Version();
}

SyncFile::~SyncFile() {
  free(m_bytes);
}

// False: see errno.
bool SyncFile::Read() {
  // In /tmp any program may have put a link, pipe or device under this name.
  const int fd = open(kSyncPath, O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY);
  if (fd < 0) return false;
  const bool isRead = ReadOpen(fd);
  const int error = errno;
  close(fd);
  errno = error;
  return isRead;
}

bool SyncFile::ReadOpen(int fd) {
  struct stat status;
  if (fstat(fd, &status) != 0) return false;
  if (!S_ISREG(status.st_mode) || status.st_size > static_cast<off_t>(kMaxFile)) {
    errno = EINVAL;
    return false;
  }
  m_version = Version(status);
  m_owner = status.st_uid;
  m_mode = status.st_mode;
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

namespace {

bool IsDiskFull() {
  struct statvfs status;
  return statvfs("/tmp", &status) == 0 && status.f_blocks != 0 &&
         (status.f_bavail == 0 || status.f_ffree == 0);
}

// The service ran the call, but there is no new file.
int ExplainNoNewFile(bool isThere) {
  const char* const state = isThere ? "out of date" : "missing";
  struct stat status;
  if (IsDiskFull()) {
    Say("%s is %s: its file system is full", kSyncPath, state);
  } else if (isThere && lstat(kSyncPath, &status) == 0) {
    Say("%s is %s: either the service cannot replace the file of user %u (check the permissions of /tmp), "
        "or it has another /tmp, as in a container",
        kSyncPath, state, static_cast<unsigned>(status.st_uid));
  } else {
    Say("%s is %s: either the service cannot create it (check the permissions of /tmp), or it has another "
        "/tmp, as in a container",
        kSyncPath, state);
  }
  return kNotConfirmed;
}

int ExplainError(int error) {
  if (error == ENOENT) return ExplainNoNewFile(false);
  if (error == EINVAL || error == ELOOP) {
    Say("%s is not a regular file of at most %zu MiB, so it is not the service's: remove it", kSyncPath,
        kMaxFile >> 20);
  } else {
    Say("cannot read %s: %s", kSyncPath, strerror(error));
  }
  return kUsage;
}

int AskForFile(Session& session, bool waits) {
  CallText sync;
  (sync << "SyncLog").CallObj();
  const int result = session.Send(sync);
  if (result != kDone) return result;
  while (waits && session.Status().held != 0 && !Session::IsInterrupted()) {
    session.Wait(Velk::GDQUdpClient::kForever);
    session.TellChanges();
  }
  return waits && Session::IsInterrupted() ? kDone : session.Finish();
}

}  // namespace

// Any user can create a file of this name in /tmp.
bool SyncFile::IsOfService(const Options& options) const {
  if ((m_mode & (S_IWGRP | S_IWOTH)) != 0) return false;
  Port port{};
  return m_owner == 0 || (FindPort(PortOf(options.server), &port) && port.user == m_owner);
}

// The service acknowledges the call even if it could not write the file. A written file differs from the one
// before in its inode or its time.
int SyncFile::Get(const Options& options, Session& session, bool waits) {
  // If the service can only overwrite the file, two writes within one clock tick (up to 10 ms) leave the same
  // time. So try again after a pause.
  constexpr int kTries = 2;
  constexpr unsigned kPauseMs = 20;
  const Version before = VersionNow();
  for (int i = 0; i < kTries; ++i) {
    if (i != 0) session.Pause(kPauseMs);
    const int result = AskForFile(session, waits);
    if (result != kDone || (waits && Session::IsInterrupted())) return result;
    if (!Read()) return ExplainError(errno);
    if (!IsOfService(options)) {
      Say("%s may be forged: only root or the service's user may own and write it, but it has user %u and "
          "mode %03o; remove it",
          kSyncPath, static_cast<unsigned>(m_owner), static_cast<unsigned>(m_mode & 0777));
      return kUsage;
    }
    // An empty file: the disk was full.
    if (m_size != 0 && m_version != before) return kDone;
  }
  return ExplainNoNewFile(true);
}

}  // namespace Ctl
