// Network layer: an IPv4 UDP socket. Logs nothing; failed system calls set errno.
#pragma once

#include "common/InetAddress2.h"

struct mmsghdr;

// Owns a socket, see udp(7) and ip(7). One thread may read while others write; no call may overlap Open() or
// Close(). A bool result tells whether the system call succeeded. IP addresses are in host byte order.
class UdpSocket3 {
 public:
  static constexpr unsigned long kForever = 0xFFFFFFFF;

  UdpSocket3() = default;
  UdpSocket3(const UdpSocket3&) = delete;
  UdpSocket3& operator=(const UdpSocket3&) = delete;
  virtual ~UdpSocket3() { Close(); }

  // Closes an open socket first. Sets close-on-exec.
  bool Open();
  void Close();

  // For other system calls; still owned. -1: closed.
  int Descriptor() const { return m_socket; }

  // ip 0: all interfaces. False without a system call if the socket is closed or ip is above 224.0.0.0.
  bool Bind(unsigned short port, unsigned long ip);
  // The same without the range check, e.g. for a multicast group.
  bool BindAddress(InetAddress2& addr);

  // The socket's inode number in proc(5); 0: closed.
  unsigned long Inode() const;
  // Whether port is bound on all addresses by a socket whose inode number is not ours. False if /proc cannot
  // be read.
  static bool IsHeldByOthers(unsigned short port, unsigned long ours);

  // Stops other programs from sharing the port, which Bind() allows. Call it after Bind().
  void ForbidSharing();

  // Sets the kernel's buffer for received datagrams. The kernel doubles bytes for its overhead. Without
  // CAP_NET_ADMIN it limits bytes to net.core.rmem_max, see socket(7).
  void SetReceiveBuffer(int bytes);

  // Blocks for one datagram and stores its sender in from. Returns its size, truncated to len, or -1.
  int Read(void* buf, long len, InetAddress2* from);
  // Blocks for one datagram, then also takes those already received, at most count. Each header has one
  // iovec, see recvmmsg(2). If the kernel refuses that call, takes one datagram. Returns how many, or -1.
  int ReadMany(mmsghdr* headers, unsigned count);
  // Sends one datagram. Blocks while the send buffer is full. Returns the bytes sent, or -1.
  int Write(const void* buf, long len, const InetAddress2* to);
  // The same, but returns -1 instead of blocking.
  int WriteNow(const void* buf, long len, const InetAddress2* to);

  // 1: ready, 0: ms milliseconds have passed, -1: error, EINTR included. kForever: no limit.
  int WaitForRead(unsigned long ms);
  int WaitForWrite(unsigned long ms);

  bool AddMulticastMembership(long group, long iface);
  bool DropMulticastMembership(long group, long iface);
  bool SetMulticastLoopback(bool on);
  bool SetMulticastInterface(unsigned long iface);
  // Lets the routing table choose the interface again.
  bool ClearMulticastInterface();
  bool SetMulticastTTL(unsigned char ttl);
  bool SetTTL(unsigned char ttl);

 private:
  int Send(const void* buf, long len, const InetAddress2* to, int flags);

  int m_socket = -1;  // -1: closed
};
