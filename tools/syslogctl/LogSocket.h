// Tool layer: the socket that syslog(3) writes to.
#pragma once

#include <sys/types.h>

#include <cstddef>

namespace Ctl {

// A bound datagram socket in the file system, unix(7), that any program may write to. Non-blocking.
class LogSocket {
 public:
  LogSocket() = default;
  LogSocket(const LogSocket&) = delete;
  LogSocket& operator=(const LogSocket&) = delete;
  // Also removes the file, unless another program has replaced it.
  ~LogSocket();

  // A file that is there is replaced only if it is a socket that no process reads. False: it failed and
  // printed why.
  bool Open(const char* path);

  int Descriptor() const { return m_fd; }

 private:
  bool ClearTheWay();
  bool Bind();

  const char* m_path = nullptr;  // not owned
  int m_fd = -1;
  dev_t m_device = 0;  // with m_inode: the file that we made
  ino_t m_inode = 0;
};

}  // namespace Ctl
