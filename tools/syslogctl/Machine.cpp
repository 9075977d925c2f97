#include "tools/syslogctl/Machine.h"

#include "common/InetAddress2.h"
#include "common/UdpSocket3.h"

namespace Ctl {
namespace {

constexpr unsigned short kAnyPort = 1;  // a host alone is asked for, but an address is never without a port

}  // namespace

bool IsThisMachine(const char* server) {
  InetAddress2 address(0, 0);
  if (!address.SetAddressString(server, kAnyPort)) return false;
  // Only own addresses can be bound to.
  address.SetAddress(static_cast<long>(address.GetIP()), 0);
  UdpSocket3 socket;
  return socket.Open() && socket.BindAddress(address);
}

bool CanResolve(const char* host) {
  InetAddress2 address(0, 0);
  return address.SetAddressString(host, kAnyPort);
}

}  // namespace Ctl
