// Tool layer: which machine and port a server's name means.
#pragma once

namespace Ctl {

// Whether server, "host" or "host:port", is an address of this machine.
bool IsThisMachine(const char* server);

// The port in server, or else the service's own.
unsigned short PortOf(const char* server);

struct Port {
  unsigned user;        // owner of the socket
  unsigned long inode;  // of the socket
  unsigned long drops;  // datagrams dropped because the socket was full
};

// Reads from /proc who uses a UDP port of this machine. False: no program, or /proc is not readable.
bool FindPort(unsigned short number, Port* port);

// Whether this machine can resolve the host. May block as long as the resolver does.
bool CanResolve(const char* host);

}  // namespace Ctl
