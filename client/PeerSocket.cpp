#include "client/PeerSocket.h"

#include <string.h>

#include "common/HashMD5.h"

namespace Velk {

// Does not set SO_REUSEADDR, which would let two programs share a port.
bool PeerSocket::Open(const InetAddress2& server) {
  const auto native = [](const InetAddress2& endpoint) {
    return reinterpret_cast<const sockaddr*>(&endpoint.Native());
  };
  Close();
  if (!m_socket.Take(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0))) return false;
  for (unsigned tries = 0; tries < kPorts; ++tries, ++m_shift) {
    const InetAddress2 local(INADDR_ANY, static_cast<unsigned short>(m_firstPort + m_shift % kPorts));
    if (bind(Descriptor(), native(local), sizeof(sockaddr_in)) == 0) break;
  }
  if (connect(Descriptor(), native(server), sizeof(sockaddr_in)) == 0 && m_readiness.Watch(Descriptor()))
    return true;
  m_socket.Close();
  return false;
}

void PeerSocket::Close() {
  m_hasCookie = false;
  // If a child process still has the socket, epoll(7) would keep watching it.
  if (Descriptor() >= 0 && IsOurs()) m_readiness.Unwatch(Descriptor());
  m_socket.Close();
}

void PeerSocket::SendConnect() {
  m_hasCookie = false;
  send(Descriptor(), "CONN", 4, MSG_DONTWAIT | MSG_NOSIGNAL);
}

bool PeerSocket::TakeNonce(const char* nonce, const char* password) {
  unsigned char cookie[kCookieSize];
  HashMD5 md5;
  md5.AddBinary(nonce, kCookieSize);
  md5.AddString(password);
  md5.GetDigest(cookie);
  if (IsForUs(reinterpret_cast<char*>(cookie))) return false;  // the cookie that we have
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
  return sendmsg(Descriptor(), &message, MSG_DONTWAIT | MSG_NOSIGNAL) >= 0;
}

}  // namespace Velk
