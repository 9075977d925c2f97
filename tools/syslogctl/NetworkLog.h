// Tool layer: syslog datagrams from other machines.
#pragma once

#include <sys/types.h>

#include "common/UdpSocket3.h"

namespace Ctl {

// A UDP port that receives RFC 3164 and RFC 5424 datagrams. Never blocks.
class NetworkLog {
 public:
  // where: "port" for all IPv4 addresses, or "address:port". False: it failed and printed why.
  bool Open(const char* where);

  // Reads up to size bytes of one datagram, and the sender's IPv4 address in host byte order. Returns the
  // length of the whole datagram, or -1 if none waits.
  ssize_t Receive(char* buffer, size_t size, unsigned* sender);

  // -1: closed.
  int Descriptor() const { return m_socket.Descriptor(); }

 private:
  UdpSocket3 m_socket;
};

}  // namespace Ctl
