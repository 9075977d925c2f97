#include "client/PeerSocket.h"

#include <fcntl.h>
#include <string.h>
#include <sys/epoll.h>
#include <unistd.h>

#include "common/HashMD5.h"

namespace Velk {

int PeerSocket::AboveStandard(int fd) {
  if (fd < 0 || fd > STDERR_FILENO) return fd;
  const int copy = fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  close(fd);
  return copy;
}

// Without SO_REUSEADDR, which would let two programs have the same port.
bool PeerSocket::Open(const InetAddress2& server, int epoll) {
  const auto native = [](const InetAddress2& end) {
    return reinterpret_cast<const sockaddr*>(&end.Native());
  };
  Close();
  m_epoll = epoll;
  m_fd = AboveStandard(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (m_fd < 0) return false;
  for (unsigned tries = 0; tries < kPorts; ++tries, ++m_shift) {
    const InetAddress2 local(INADDR_ANY, static_cast<unsigned short>(m_firstPort + m_shift % kPorts));
    if (bind(m_fd, native(local), sizeof(sockaddr_in)) == 0) break;
  }
  epoll_event event{};
  event.events = EPOLLIN;
  if (connect(m_fd, native(server), sizeof(sockaddr_in)) == 0 &&
      epoll_ctl(epoll, EPOLL_CTL_ADD, m_fd, &event) == 0)
    return true;
  close(m_fd);
  m_fd = -1;
  return false;
}

void PeerSocket::Close() {
  m_hasCookie = false;
  if (m_fd < 0) return;
  // A child process may still have the socket, which would then go on being watched.
  epoll_ctl(m_epoll, EPOLL_CTL_DEL, m_fd, nullptr);
  close(m_fd);
  m_fd = -1;
}

void PeerSocket::SendConnect() {
  m_hasCookie = false;
  send(m_fd, "CONN", 4, 0);
}

bool PeerSocket::TakeNonce(const char* nonce, const char* password) {
  unsigned char cookie[kCookieSize];
  HashMD5 md5;
  md5.AddBinary(nonce, kCookieSize);
  md5.AddString(password);
  md5.GetDigest(cookie);
  if (IsForUs(reinterpret_cast<char*>(cookie))) return false;
  memcpy(m_cookie, cookie, kCookieSize);
  return m_hasCookie = true;
}

bool PeerSocket::IsForUs(const char* datagram) const {
  return m_hasCookie && memcmp(datagram, m_cookie, kCookieSize) == 0;
}

bool PeerSocket::Send(const char* head, unsigned headLength, const char* text, unsigned length) {
  iovec pieces[] = {
      {m_cookie, kCookieSize}, {const_cast<char*>(head), headLength}, {const_cast<char*>(text), length}};
  msghdr message{};
  message.msg_iov = pieces;
  message.msg_iovlen = 3;
  return sendmsg(m_fd, &message, 0) >= 0;
}

}  // namespace Velk
