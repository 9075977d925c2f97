#include "client/Readiness.h"

#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <unistd.h>

namespace Velk {
namespace {

constexpr uint32_t kNothing = 0;  // the anchor's events

bool Control(int epoll, int operation, int fd, uint32_t events) {
  epoll_event event{};
  event.events = events;
  return epoll_ctl(epoll, operation, fd, &event) == 0;
}

}  // namespace

bool Readiness::Open() {
  Close();
  m_epoll = OwnDescriptor::AboveStandard(epoll_create1(EPOLL_CLOEXEC));
  m_timer = OwnDescriptor::AboveStandard(timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC));
  if (m_epoll >= 0 && m_timer >= 0 && m_anchor.Take(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) &&
      Control(m_epoll, EPOLL_CTL_ADD, m_anchor.Get(), kNothing) &&
      Control(m_epoll, EPOLL_CTL_ADD, m_timer, EPOLLIN)) {
    m_shown = m_epoll;
    return true;
  }
  if (m_epoll >= 0) close(m_epoll);
  if (m_timer >= 0) close(m_timer);
  m_epoll = m_timer = -1;
  m_anchor.Close();
  return false;
}

// Without the anchor we cannot tell whose the other descriptors are, so they stay open.
void Readiness::Close() {
  const bool hasEpoll = IsEpollOurs();
  const bool hasTimer = hasEpoll && IsOurs();
  if (hasEpoll) close(m_epoll);
  if (hasTimer) close(m_timer);
  m_epoll = m_timer = m_shown = -1;
  m_anchor.Close();
}

// epoll(7) identifies members by file and number. EPOLL_CTL_MOD with the same events changes nothing if both
// descriptors are ours, and fails if either number is another file's.
bool Readiness::IsEpollOurs() const {
  return m_anchor.Get() >= 0 && m_anchor.IsOurs() &&
         Control(m_epoll, EPOLL_CTL_MOD, m_anchor.Get(), kNothing);
}

bool Readiness::IsOurs() const {
  return IsEpollOurs() && Control(m_epoll, EPOLL_CTL_MOD, m_timer, EPOLLIN);
}

bool Readiness::Watch(int socket) {
  return m_shown >= 0 && IsEpollOurs() && Control(m_epoll, EPOLL_CTL_ADD, socket, EPOLLIN);
}

void Readiness::Unwatch(int socket) {
  Control(m_shown, EPOLL_CTL_DEL, socket, 0);
}

void Readiness::SetTime(uint64_t us) {
  if (m_shown < 0) return;
  itimerspec setting{};
  if (us != UINT64_MAX) {
    setting.it_value.tv_sec = static_cast<time_t>(us / 1000000);
    setting.it_value.tv_nsec = static_cast<long>(us % 1000000 * 1000);
  }
  timerfd_settime(m_timer, TFD_TIMER_ABSTIME, &setting, nullptr);
}

}  // namespace Velk
