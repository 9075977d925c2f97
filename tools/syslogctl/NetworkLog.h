// Tool layer: syslog datagrams of other machines.
#pragma once

#include <sys/types.h>

#include "common/UdpSocket3.h"

namespace Ctl {

// A UDP port that takes RFC 3164 and RFC 5424. Never blocks.
class NetworkLog {
 public:
  // where: "port" of all IPv4 addresses, or "address:port". False: said why.
  bool Open(const char* where);

  // One datagram, cut to size, and the sender's IPv4 address in host byte order. Returns the length that it
  // had; -1: there is none now.
  ssize_t Receive(char* buffer, size_t size, unsigned* sender);

  // -1: closed.
  int Descriptor() const { return m_socket.Descriptor(); }

 private:
  UdpSocket3 m_socket;
};

}  // namespace Ctl
