// Network layer: IPv4 endpoints. Uses LogPrinter for resolver warnings, nothing else.
#pragma once

#include <netinet/in.h>

// Writes n in decimal and a NUL at p. Returns the position of the NUL, so that calls can be chained.
// Needs at most 11 bytes.
char* NumToString(char* p, unsigned int n);

// An IPv4 address and a UDP port, kept as the socket address that the system calls take (ip(7)).
// Addresses and ports come and go in host byte order; of a long address only the low 32 bits count, so a
// 32-bit machine's negative long means the same endpoint. Lock outside if threads share one.
class InetAddress2 {
 public:
  // Room that any IPToString result fits in: "255.255.255.255:65535" and the NUL.
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

  // Address of a dotted quad that ends at ":" or the end of the text, or 0. *error (may be null) becomes
  // true unless it was one.
  static unsigned long StringToIP(const char* text, bool* error);

  // Whether text has no port, or one from 1 to 65535 and nothing after it. Stricter than the next operation,
  // for what a person wrote.
  static bool HasValidPort(const char* text);

  // Takes "host", "host:port", "quad" or "quad:port"; without a port the defaultPort. False leaves the
  // object as it was: port 0, no host or one longer than kMaxHost, or the lookup failed (logged), with errno
  // ENOMEM for want of memory.
  // A host name other than "localhost" blocks in getaddrinfo(3).
  bool SetAddressString(const char* text, unsigned short defaultPort);

  // Writes "a.b.c.d", then ":port" unless port is 0, and a NUL. Returns the position of the NUL.
  static char* IPToString(char* buf, unsigned long ip, unsigned short port);
  // The same for this address, always without the port.
  char* GetIPString(char* buf) const;

  // Checks the dotted-quad rules on the machine at hand. The first failing check is named on standard
  // output.
  static bool Test();

  // The socket address itself, for system calls.
  const sockaddr_in& Native() const { return m_address; }
  sockaddr_in& Native() { return m_address; }

 protected:
  // Asks getaddrinfo(3) for the host's first address and returns that function's result. A test has its own
  // hosts.
  virtual int LookUp(const char* host, in_addr* address) const;

 private:
  sockaddr_in m_address;
};
