// Client layer: the socket of a program that calls the service, and its place in the handshake.
#pragma once

#include <sys/socket.h>

#include "client/Readiness.h"
#include "common/GDQUdpBase.h"
#include "common/InetAddress2.h"

namespace Velk {

// Never blocks. One thread at a time. Where a result is said to be a system call's, errno is too.
class PeerSocket {
 public:
  static constexpr unsigned kCookieSize = GDQUdpBase::kCookieSize;
  // Local ports to choose from. The service keeps a record of each endpoint for ever, so short runs of a
  // program must not use a new one each time. When all are taken, any port is used.
  static constexpr unsigned kPorts = 32;

  // The ports are firstPort and those that follow it. readiness watches the socket for input.
  PeerSocket(unsigned short firstPort, Readiness& readiness)
      : m_firstPort(firstPort), m_readiness(readiness) {}
  ~PeerSocket() { Close(); }
  PeerSocket(const PeerSocket&) = delete;
  PeerSocket& operator=(const PeerSocket&) = delete;

  // Opens a new socket, on the port of the one before if there was one, that exchanges datagrams with server
  // only. False as a system call; the socket is closed then.
  bool Open(const InetAddress2& server);
  void Close();
  int Descriptor() const { return m_socket.Get(); }  // -1: closed
  // See OwnDescriptor.
  bool IsOurs() const { return m_socket.IsOurs(); }
  void Suspend() { m_socket.Suspend(); }
  // The next Open() begins at another port.
  void ChangePort() { ++m_shift; }

  // Asks for a nonce, which ends an admission. The answer to a failure is to ask again.
  void SendConnect();
  // The cookie of this nonce and password is ours from now on. False: it was already.
  bool TakeNonce(const char* nonce, const char* password);
  bool HasCookie() const { return m_hasCookie; }
  // Whether a datagram, of at least kCookieSize bytes, begins with our cookie.
  bool IsForUs(const char* datagram) const;

  // Sends the cookie followed by both texts, together at most GDQUdpBase::kMaxText. False as send(2).
  bool Send(const char* head, unsigned headLength, const char* text, unsigned length);
  // As recv(2).
  ssize_t Receive(char* datagram, unsigned size) { return recv(Descriptor(), datagram, size, 0); }

 private:
  const unsigned short m_firstPort;
  unsigned m_shift = 0;
  Readiness& m_readiness;
  OwnDescriptor m_socket;
  bool m_hasCookie = false;
  char m_cookie[kCookieSize] = {};
};

}  // namespace Velk
