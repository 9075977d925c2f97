// Client layer: the descriptor by which a client tells its program that it needs time.
#pragma once

#include <atomic>
#include <cstdint>

#include "client/OwnDescriptor.h"

namespace Velk {

// An epoll(7) descriptor that is readable while a watched socket is, and from a set time on. One thread at a
// time, but for Descriptor().
class Readiness {
 public:
  Readiness() = default;
  ~Readiness() { Close(); }
  Readiness(const Readiness&) = delete;
  Readiness& operator=(const Readiness&) = delete;

  // Closes what was open before. False as a system call; it is closed then.
  bool Open();
  // A forked child that closes its copy does not disturb its parent.
  void Close();
  // See OwnDescriptor. Until it is closed nothing is watched or set.
  void Suspend() { m_shown = -1; }

  int Descriptor() const { return m_shown; }  // -1: closed or suspended
  // Whether all numbers still are those of our descriptors, see OwnDescriptor. Three system calls. False
  // where it is closed.
  bool IsOurs() const;

  // The socket is ours. False: it is not watched, as the numbers are no more ours.
  bool Watch(int socket);
  void Unwatch(int socket);
  // Needs IsOurs(), or to be suspended. Microseconds of NowUs(); UINT64_MAX: never. Until it is set again.
  void SetTime(uint64_t us);

 private:
  bool IsEpollOurs() const;

  OwnDescriptor m_anchor;  // an idle socket; what has it in its set is our epoll descriptor
  std::atomic<int> m_shown{-1};
  int m_epoll = -1;
  int m_timer = -1;
};

}  // namespace Velk
