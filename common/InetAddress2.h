// Network layer: IPv4 endpoints. Logs only resolver warnings.
#pragma once

#include <netinet/in.h>

// Writes n in decimal and a NUL to p, at most 11 bytes. Returns the position of the NUL.
char* NumToString(char* p, unsigned int n);

// An IPv4 address and a UDP port, stored as a sockaddr_in, see ip(7). Addresses and ports are passed in host
// byte order. Only the low 32 bits of a `long ip` count, so on a 32-bit machine it may be negative. One
// thread at a time.
class InetAddress2 {
 public:
  // Room for any result of IPToString(): "255.255.255.255:65535" and the NUL.
  static constexpr unsigned kMaxText = 22;
  // Longest host name that is looked up.
  static constexpr unsigned kMaxHost = 79;

  InetAddress2(long ip, unsigned short port);
  InetAddress2(const InetAddress2&) = default;
  InetAddress2& operator=(const InetAddress2&) = default;
  virtual ~InetAddress2() = default;

  void SetAddress(long ip, unsigned short port);
  // Any interface, the given port.
  void SetListenAddress(unsigned short port);
  unsigned long GetIP() const;
  unsigned short GetPort() const;

  // Parses a dotted quad up to ":" or the end of the text. Ignores characters other than digits and dots.
  // Returns 0 if it is not one. Sets *error to whether parsing failed, unless error is null.
  static unsigned long StringToIP(const char* text, bool* error);

  // Whether text has no port, or one from 1 to 65535 with nothing after it. Stricter than SetAddressString(),
  // for user input.
  static bool HasValidPort(const char* text);

  // Accepts "host", "host:port", "quad" and "quad:port"; without a port, uses defaultPort. A host name other
  // than "localhost" blocks in getaddrinfo(3). False, and the object is unchanged: port 0, no host, host
  // longer than kMaxHost, or the lookup failed (logged); errno is ENOMEM if it ran out of memory.
  bool SetAddressString(const char* text, unsigned short defaultPort);

  // Writes "a.b.c.d", then ":port" unless port is 0, and a NUL. Returns the position of the NUL.
  static char* IPToString(char* buf, unsigned long ip, unsigned short port);
  // The same for this address, always without the port.
  char* GetIPString(char* buf) const;

  // Tests StringToIP() on this machine. Prints the first failed check to standard output.
  static bool Test();

  // The socket address itself, for system calls.
  const sockaddr_in& Native() const { return m_address; }
  sockaddr_in& Native() { return m_address; }

 protected:
  // Gets the host's first address and returns the result of getaddrinfo(3). Tests override it.
  virtual int LookUp(const char* host, in_addr* address) const;

 private:
  sockaddr_in m_address;
};
