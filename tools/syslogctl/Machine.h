// Tool layer: which machine is meant.
#pragma once

namespace Ctl {

// The server, "host" or "host:port", is an address of this machine.
bool IsThisMachine(const char* server);

// Its port.
unsigned short PortOf(const char* server);

struct Port {
  unsigned user;        // whose program has it
  unsigned long inode;  // of the socket
  unsigned long drops;  // datagrams that found the socket full
};

// What /proc says of a UDP port of this machine. False: no program has it, or /proc does not say.
bool FindPort(unsigned short number, Port* port);

// The host's name, or IPv4 address, means something here. May block for the resolver's time.
bool CanResolve(const char* host);

}  // namespace Ctl
