// Client layer: a socket in a program that may close descriptors it does not know.
#pragma once

#include <sys/types.h>

namespace Velk {

// Owns the descriptor of a socket, and can tell whether the number still is that socket's. A program that
// closes all its descriptors, to become a daemon, gives their numbers to files of its own, which must not be
// used or closed in place of ours. For sockets only: epoll(7), timerfd(2) and the like share one inode. One
// thread at a time.
class OwnDescriptor {
 public:
  OwnDescriptor() = default;
  ~OwnDescriptor() { Close(); }
  OwnDescriptor(const OwnDescriptor&) = delete;
  OwnDescriptor& operator=(const OwnDescriptor&) = delete;

  // Takes over fd, in place of the one before. False with errno: it is -1, or AboveStandard() fails.
  bool Take(int fd);
  // Closes it if it is ours, and forgets it.
  void Close();
  // Get() is -1 until Close(). To use it no more at once, but to close it when the program is done with
  // closing.
  void Suspend() { m_isSuspended = true; }

  int Get() const { return m_isSuspended ? -1 : m_fd; }  // -1: none
  // Asks the kernel, in one system call. True where there is none.
  bool IsOurs() const;

  // fd, or a copy of it that is no standard descriptor, which a program may close and open as it likes.
  static int AboveStandard(int fd);

 private:
  int m_fd = -1;
  bool m_isSuspended = false;
  dev_t m_device = 0;
  ino_t m_inode = 0;
};

}  // namespace Velk
