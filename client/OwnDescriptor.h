// Client layer: a socket in a program that may close descriptors it did not open.
#pragma once

#include <sys/types.h>

namespace Velk {

// Owns a socket and can tell whether its descriptor number still refers to it. A program that closes all
// descriptors to become a daemon reuses their numbers for its own files, which we must not use or close. For
// sockets only: epoll(7), timerfd(2) and the like share one inode. One thread at a time.
class OwnDescriptor {
 public:
  OwnDescriptor() = default;
  ~OwnDescriptor() { Close(); }
  OwnDescriptor(const OwnDescriptor&) = delete;
  OwnDescriptor& operator=(const OwnDescriptor&) = delete;

  // Closes the current descriptor and takes ownership of fd. False with errno: fd is -1, or AboveStandard()
  // failed.
  bool Take(int fd);
  // Closes the descriptor if it is still ours.
  void Close();
  // Makes Get() return -1 until Close(), but closes nothing: a program that is closing descriptors could
  // reuse the number between our check and close(2).
  void Suspend() { m_isSuspended = true; }

  int Get() const { return m_isSuspended ? -1 : m_fd; }  // -1: none
  // Whether the number still refers to our socket; true if there is none. Makes one system call.
  bool IsOurs() const;

  // Moves fd off the standard descriptors, which a program may close and reopen at any time. Returns fd or
  // its replacement; -1 with errno on failure.
  static int AboveStandard(int fd);

 private:
  int m_fd = -1;
  bool m_isSuspended = false;
  dev_t m_device = 0;
  ino_t m_inode = 0;
};

}  // namespace Velk
