#include "tools/syslogctl/NetworkLog.h"

#include <arpa/inet.h>
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>

#include "tools/syslogctl/Options.h"

namespace Ctl {
namespace {

bool ReadAddress(const char* where, InetAddress2* address) {
  char text[InetAddress2::kMaxText];
  const char* const form = strchr(where, ':') != nullptr ? "%s" : "0.0.0.0:%s";
  const int length = snprintf(text, sizeof text, form, where);
  char* const colon = strchr(text, ':');
  if (length >= static_cast<int>(sizeof text) || !InetAddress2::HasValidPort(text)) return false;
  *colon = '\0';
  in_addr ip{};
  if (inet_pton(AF_INET, text, &ip) != 1) return false;
  const auto port = static_cast<unsigned short>(strtoul(colon + 1, nullptr, 10));
  address->SetAddress(static_cast<long>(ntohl(ip.s_addr)), port);
  return true;
}

}  // namespace

bool NetworkLog::Open(const char* where) {
  // Room for a burst of several hundred lines, which can arrive before the process is scheduled.
  constexpr int kReceiveBuffer = 512 << 10;
  InetAddress2 address(0, 0);
  if (!ReadAddress(where, &address)) {
    Say("cannot use '%s': give PORT or ADDRESS:PORT, with an IPv4 address of this machine", where);
    return false;
  }
  // If another program lets its port be shared, bind(2) succeeds and we would take its datagrams.
  if (address.GetIP() == 0 && UdpSocket3::IsHeldByOthers(address.GetPort(), 0)) {
    Say("another program uses UDP port %u (the service uses 514 while it forwards): give ADDRESS:PORT with "
        "an address of this machine, or another port",
        address.GetPort());
    return false;
  }
  if (!m_socket.Open() || !m_socket.BindAddress(address)) {
    Say("cannot listen on UDP port %s: %s%s", where, strerror(errno),
        errno == EACCES ? "; run as root, or use a port from 1024 up" : "");
    return false;
  }
  m_socket.ForbidSharing();
  m_socket.SetReceiveBuffer(kReceiveBuffer);
  return true;
}

ssize_t NetworkLog::Receive(char* buffer, size_t size, unsigned* sender) {
  sockaddr_in from{};
  socklen_t length = sizeof from;
  const ssize_t received = recvfrom(m_socket.Descriptor(), buffer, size, MSG_TRUNC | MSG_DONTWAIT,
                                    reinterpret_cast<sockaddr*>(&from), &length);
  *sender = ntohl(from.sin_addr.s_addr);
  return received;
}

}  // namespace Ctl
