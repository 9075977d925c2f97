#include "tools/syslogctl/LogSocket.h"

#include <errno.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "tools/syslogctl/Options.h"

namespace Ctl {
namespace {

int OpenDatagramSocket() {
  return socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
}

sockaddr_un AddressOf(const char* path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  memcpy(address.sun_path, path, strlen(path));
  return address;
}

// Whether a process reads the socket. Only ECONNREFUSED means no: another type of socket gives other errors.
bool IsInUse(const char* path) {
  const int fd = OpenDatagramSocket();
  if (fd < 0) return true;
  const sockaddr_un address = AddressOf(path);
  const bool isDead =
      connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 && errno == ECONNREFUSED;
  close(fd);
  return !isDead;
}

}  // namespace

LogSocket::~LogSocket() {
  if (m_fd < 0) return;
  struct stat status;
  const bool isOurs = lstat(m_path, &status) == 0 && status.st_dev == m_device && status.st_ino == m_inode;
  if (isOurs) unlink(m_path);
  close(m_fd);
}

bool LogSocket::Open(const char* path) {
  m_path = path;
  if (*path == '\0' || strlen(path) >= sizeof(sockaddr_un::sun_path)) {
    Say("invalid socket path '%s': use 1 to %zu bytes", path, sizeof(sockaddr_un::sun_path) - 1);
    return false;
  }
  return ClearTheWay() && Bind();
}

bool LogSocket::ClearTheWay() {
  struct stat status;
  if (lstat(m_path, &status) != 0) return true;  // nothing there, or an error that bind(2) will report
  if (!S_ISSOCK(status.st_mode)) {
    Say("%s is not a socket: remove it, or give another path with --socket", m_path);
    return false;
  }
  if (IsInUse(m_path)) {
    Say("another program reads from %s: stop it, or give another path with --socket", m_path);
    return false;
  }
  if (unlink(m_path) == 0 || errno == ENOENT) return true;
  Say("cannot remove the stale socket %s: %s; run as root, or give another path with --socket", m_path,
      strerror(errno));
  return false;
}

bool LogSocket::Bind() {
  m_fd = OpenDatagramSocket();
  const sockaddr_un address = AddressOf(m_path);
  struct stat status;
  // Mode 0666, so that any program can log. Not with chmod(2): the path may name another file by then.
  const mode_t before = umask(0111);
  const bool isBound =
      m_fd >= 0 && bind(m_fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  umask(before);
  if (!isBound || lstat(m_path, &status) != 0) {
    Say("cannot create the socket %s: %s%s", m_path, strerror(errno),
        errno == EACCES ? "; run as root, or give another path with --socket" : "");
    if (m_fd >= 0) close(m_fd);
    m_fd = -1;
    return false;
  }
  m_device = status.st_dev;
  m_inode = status.st_ino;
  return true;
}

}  // namespace Ctl
