#include "tools/syslogctl/Machine.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "common/InetAddress2.h"
#include "common/ServiceNames.h"
#include "common/UdpSocket3.h"

namespace Ctl {
namespace {

constexpr unsigned short kAnyPort = 1;  // SetAddressString() needs a port, but only the host matters here

}  // namespace

bool IsThisMachine(const char* server) {
  InetAddress2 address(0, 0);
  if (!address.SetAddressString(server, kAnyPort)) return false;
  // bind(2) fails for an address of another machine.
  address.SetAddress(static_cast<long>(address.GetIP()), 0);
  UdpSocket3 socket;
  return socket.Open() && socket.BindAddress(address);
}

unsigned short PortOf(const char* server) {
  const char* const colon = strchr(server, ':');
  return colon != nullptr ? static_cast<unsigned short>(atoi(colon + 1)) : Velk::kServicePort;
}

bool FindPort(unsigned short number, Port* port) {
  FILE* const table = fopen("/proc/self/net/udp", "re");
  if (table == nullptr) return false;
  char line[256];
  bool isFound = false;
  while (!isFound && fgets(line, sizeof line, table) != nullptr) {
    unsigned local = 0;
    // See proc(5): slot, local address and port, remote ones, state, queues, timer, retransmits, user,
    // timeout, inode, references, pointer, drops.
    isFound = sscanf(line, " %*u: %*x:%x %*x:%*x %*x %*x:%*x %*x:%*x %*x %u %*u %lu %*u %*s %lu", &local,
                     &port->user, &port->inode, &port->drops) == 4 &&
              local == number;
  }
  fclose(table);
  return isFound;
}

bool CanResolve(const char* host) {
  InetAddress2 address(0, 0);
  return address.SetAddressString(host, kAnyPort);
}

}  // namespace Ctl
