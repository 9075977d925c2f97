// Transport layer: one socket of a program that calls the service, and its place in the handshake.
#pragma once

#include <sys/types.h>

#include <cstdint>

#include "common/GDQUdpBase.h"
#include "common/InetAddress2.h"
#include "common/UdpSocket3.h"

namespace Velk {

// Never waits. One thread at a time. Where a result is said to be a system call's, errno is too.
class PeerSocket {
 public:
  static constexpr unsigned kCookieSize = GDQUdpBase::kCookieSize;
  // Local ports: the first free one of so many, so that however many runs of a program leave the service with
  // that many records of peers, not with one for each. When all are taken, any port is.
  static constexpr unsigned kPorts = 32;

  // Ports are firstPort and those behind it.
  explicit PeerSocket(unsigned short firstPort) : m_firstPort(firstPort) {}

  // Opens a new socket, on the port of the one before if there was one, that exchanges datagrams with server
  // only. It is watched for input by epoll. False as a system call; the socket is closed then.
  bool Open(const InetAddress2& server, int epoll);
  void Close();
  bool IsOpen() const { return m_socket.Descriptor() >= 0; }
  int Descriptor() const { return m_socket.Descriptor(); }
  // The next Open() begins at another port.
  void ChangePort() { ++m_shift; }

  // Asks for a nonce, which ends an admission. Nothing can be done about a failure but to ask again.
  void SendConnect();
  // The cookie that belongs to the nonce is ours from now on.
  void TakeNonce(const char* nonce, const char* password);
  bool HasCookie() const { return m_hasCookie; }
  void ForgetCookie() { m_hasCookie = false; }
  // Whether a datagram, of at least kCookieSize bytes, begins with our cookie.
  bool IsForUs(const char* datagram) const;

  // Sends the cookie with text and tag behind it, together at most GDQUdpBase::kMaxText. False as send(2).
  bool Send(const char* text, unsigned length, const char* tag, unsigned tagLength);
  // As recv(2).
  ssize_t Receive(char* datagram, unsigned size);

 private:
  UdpSocket3 m_socket;
  const unsigned short m_firstPort;
  unsigned m_shift = 0;
  int m_epoll = -1;
  bool m_hasCookie = false;
  char m_cookie[kCookieSize] = {};
};

}  // namespace Velk
