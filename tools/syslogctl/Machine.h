// Tool layer: which machine is meant.
#pragma once

namespace Ctl {

// The server, "host" or "host:port", is an address of this machine.
bool IsThisMachine(const char* server);

// Its port.
unsigned short PortOf(const char* server);

// The user whose program has a UDP port of this machine. False: there is none, or /proc does not say.
bool FindOwnerOfPort(unsigned short port, unsigned* user);

// The host's name, or IPv4 address, means something here. May block for the resolver's time.
bool CanResolve(const char* host);

}  // namespace Ctl
