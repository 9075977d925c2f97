// Client layer: a client's socket and its handshake with the service.
#pragma once

#include <sys/socket.h>

#include "client/Readiness.h"
#include "common/GDQUdpBase.h"
#include "common/InetAddress2.h"

namespace Velk {

// No send or receive blocks or raises SIGPIPE, even if the program has just reused our descriptor number for
// a file of its own. One thread at a time.
class PeerSocket {
 public:
  static constexpr unsigned kCookieSize = GDQUdpBase::kCookieSize;
  // Number of local ports to choose from; if all are taken, any port is used. The service keeps a record of
  // each endpoint for ever, so a program that is run often must not use a new port each time.
  static constexpr unsigned kPorts = 32;

  // The local ports start at firstPort. readiness watches the socket for input and must outlive this object.
  PeerSocket(unsigned short firstPort, Readiness& readiness)
      : m_firstPort(firstPort), m_readiness(readiness) {}
  ~PeerSocket() { Close(); }
  PeerSocket(const PeerSocket&) = delete;
  PeerSocket& operator=(const PeerSocket&) = delete;

  // Opens a new socket connected to server, on the previous port if possible. False with errno: none is open.
  bool Open(const InetAddress2& server);
  void Close();
  int Descriptor() const { return m_socket.Get(); }  // -1: none
  bool IsOurs() const { return m_socket.IsOurs(); }  // see OwnDescriptor
  void Suspend() { m_socket.Suspend(); }
  // Makes the next Open() start at another port.
  void ChangePort() { ++m_shift; }

  // Asks for a nonce. We are not admitted until we send its cookie. Failures are ignored: the caller retries.
  void SendConnect();
  // Computes the cookie from nonce and password. False: we already have that cookie.
  bool TakeNonce(const char* nonce, const char* password);
  bool HasCookie() const { return m_hasCookie; }
  // Whether the datagram, of at least kCookieSize bytes, begins with our cookie.
  bool IsForUs(const char* datagram) const;

  // Sends the cookie, head and text as one datagram. head and text have at most GDQUdpBase::kMaxText bytes
  // together. False: send(2) failed.
  bool Send(const char* head, unsigned headLength, const char* text, unsigned length);
  // Returns what recv(2) returns.
  ssize_t Receive(char* datagram, unsigned size) { return recv(Descriptor(), datagram, size, MSG_DONTWAIT); }

 private:
  const unsigned short m_firstPort;
  unsigned m_shift = 0;
  Readiness& m_readiness;
  OwnDescriptor m_socket;
  bool m_hasCookie = false;
  char m_cookie[kCookieSize] = {};
};

}  // namespace Velk
