#include "client/PeerSocket.h"

#include <string.h>
#include <sys/epoll.h>
#include <sys/socket.h>

#include "common/HashMD5.h"

namespace Velk {

namespace {

const sockaddr* Native(const InetAddress2& address) {
  return reinterpret_cast<const sockaddr*>(&address.Native());
}

}  // namespace

// Without SO_REUSEADDR, which would let two programs have the same port.
bool PeerSocket::Open(const InetAddress2& server, int epoll) {
  Close();
  if (!m_socket.Open()) return false;
  for (unsigned i = 0; i < kPorts; ++i) {
    const unsigned shift = (m_shift + i) % kPorts;
    const InetAddress2 local(INADDR_ANY, static_cast<unsigned short>(m_firstPort + shift));
    if (bind(Descriptor(), Native(local), sizeof(sockaddr_in)) != 0) continue;
    m_shift = shift;
    break;
  }
  m_epoll = epoll;
  epoll_event event{};
  event.events = EPOLLIN;
  if (connect(Descriptor(), Native(server), sizeof(sockaddr_in)) == 0 &&
      epoll_ctl(epoll, EPOLL_CTL_ADD, Descriptor(), &event) == 0)
    return true;
  m_socket.Close();
  return false;
}

void PeerSocket::Close() {
  ForgetCookie();
  if (!IsOpen()) return;
  // A child process may still have the socket, which would then be watched on.
  epoll_ctl(m_epoll, EPOLL_CTL_DEL, Descriptor(), nullptr);
  m_socket.Close();
}

void PeerSocket::SendConnect() {
  ForgetCookie();
  send(Descriptor(), "CONN", 4, MSG_DONTWAIT);
}

void PeerSocket::TakeNonce(const char* nonce, const char* password) {
  HashMD5 md5;
  md5.AddBinary(nonce, kCookieSize);
  md5.AddString(password);
  md5.GetDigest(reinterpret_cast<unsigned char*>(m_cookie));
  m_hasCookie = true;
}

bool PeerSocket::IsForUs(const char* datagram) const {
  return m_hasCookie && memcmp(datagram, m_cookie, kCookieSize) == 0;
}

bool PeerSocket::Send(const char* text, unsigned length, const char* tag, unsigned tagLength) {
  iovec pieces[] = {
      {m_cookie, kCookieSize}, {const_cast<char*>(text), length}, {const_cast<char*>(tag), tagLength}};
  msghdr message{};
  message.msg_iov = pieces;
  message.msg_iovlen = 3;
  return sendmsg(Descriptor(), &message, MSG_DONTWAIT) >= 0;
}

ssize_t PeerSocket::Receive(char* datagram, unsigned size) {
  return recv(Descriptor(), datagram, size, MSG_DONTWAIT);
}

}  // namespace Velk
