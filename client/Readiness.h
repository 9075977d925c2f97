// Client layer: the descriptor that tells a program when to call GDQUdpClient::Process().
#pragma once

#include <atomic>
#include <cstdint>

#include "client/OwnDescriptor.h"

namespace Velk {

// An epoll(7) descriptor that is readable while a watched socket is readable, and once a set time has come.
// One thread at a time; any thread may call Descriptor().
class Readiness {
 public:
  Readiness() = default;
  ~Readiness() { Close(); }
  Readiness(const Readiness&) = delete;
  Readiness& operator=(const Readiness&) = delete;

  // Closes open descriptors first. False with errno; then none is open.
  bool Open();
  // In a forked child this does not affect the parent.
  void Close();
  // See OwnDescriptor::Suspend(). Watch() and SetTime() do nothing until the next Open().
  void Suspend() { m_shown = -1; }

  int Descriptor() const { return m_shown; }  // -1: closed or suspended
  // Whether all descriptor numbers are still ours, see OwnDescriptor. Makes three system calls. False if
  // closed.
  bool IsOurs() const;

  // socket must be open and belong to the caller. False: it is not watched, as we are closed or suspended,
  // our descriptors are no longer ours, or epoll_ctl(2) failed.
  bool Watch(int socket);
  void Unwatch(int socket);
  // Sets the time, in microseconds of NowUs(); 0 or UINT64_MAX: never. From that time on, the descriptor is
  // readable until the next SetTime(). Call it only if IsOurs() or suspended.
  void SetTime(uint64_t us);

 private:
  bool IsEpollOurs() const;

  OwnDescriptor m_anchor;  // an idle socket that only our epoll watches: shows whether m_epoll is ours
  std::atomic<int> m_shown{-1};
  int m_epoll = -1;
  int m_timer = -1;
};

}  // namespace Velk
