#include "client/OwnDescriptor.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Velk {

int OwnDescriptor::AboveStandard(int fd) {
  if (fd < 0 || fd > STDERR_FILENO) return fd;
  const int copy = fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  close(fd);
  return copy;
}

bool OwnDescriptor::Take(int fd) {
  Close();
  m_fd = AboveStandard(fd);
  if (m_fd < 0) return false;
  struct stat status {};
  fstat(m_fd, &status);  // cannot fail
  m_device = status.st_dev;
  m_inode = status.st_ino;
  return true;
}

void OwnDescriptor::Close() {
  if (m_fd >= 0 && IsOurs()) close(m_fd);
  m_fd = -1;
  m_isSuspended = false;
}

bool OwnDescriptor::IsOurs() const {
  struct stat status;
  return m_fd < 0 || (fstat(m_fd, &status) == 0 && status.st_ino == m_inode && status.st_dev == m_device);
}

}  // namespace Velk
