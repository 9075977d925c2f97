// Network layer: one IPv4 UDP socket. Logs nothing; failures are results, errno says why.
#pragma once

#include "common/InetAddress2.h"

struct mmsghdr;

// Owns one socket descriptor, see udp(7) and ip(7). One thread may read while others write; opening and
// closing needs the object to oneself. A bool result is the success of the system call. IP addresses are
// in host byte order.
class UdpSocket3 {
 public:
  static constexpr unsigned long kForever = 0xFFFFFFFF;

  UdpSocket3() = default;
  UdpSocket3(const UdpSocket3&) = delete;
  UdpSocket3& operator=(const UdpSocket3&) = delete;
  virtual ~UdpSocket3() { Close(); }

  // Closes an open descriptor first. The new one is not inherited across exec.
  bool Open();
  void Close();

  // The socket for other system calls, -1 when closed. Still owned.
  int Descriptor() const { return m_socket; }

  // ip 0: all interfaces. False without a system call when the socket is closed or ip is above 224.0.0.0.
  bool Bind(unsigned short port, unsigned long ip);
  // The same without the range check, e.g. for a multicast group.
  bool BindAddress(InetAddress2& addr);

  // The number by which proc(5) knows the socket; 0: closed.
  unsigned long Inode() const;
  // Whether a socket other than that with the number ours receives what comes for a port of every address of
  // this machine. False where /proc can't be read.
  static bool IsHeldByOthers(unsigned short port, unsigned long ours);

  // Ends the sharing of the port that binding allows: other programs can no longer bind to it.
  void ForbidSharing();

  // The kernel's memory for datagrams not yet read; it counts twice the bytes, as it has overhead. At most
  // net.core.rmem_max without CAP_NET_ADMIN, see socket(7).
  void SetReceiveBuffer(int bytes);

  // Blocks for one datagram and notes its sender in from. Returns its bytes, cut to len, or -1.
  int Read(void* buf, long len, InetAddress2* from);
  // Blocks for one datagram and takes with it those that came by then, at most count. The headers say where
  // to, each in one piece, and get the lengths, see recvmmsg(2). Takes one datagram only where the kernel
  // refuses that call. Returns how many, or -1.
  int ReadMany(mmsghdr* headers, unsigned count);
  // Sends one datagram. Returns the bytes sent or -1.
  int Write(const void* buf, long len, const InetAddress2* to);
  // The same, but -1 instead of waiting while the socket's send buffer is full.
  int WriteNow(const void* buf, long len, const InetAddress2* to);

  // 1: ready, 0: ms milliseconds went by, -1: error (a signal counts as one). kForever: no limit.
  int WaitForRead(unsigned long ms);
  int WaitForWrite(unsigned long ms);

  bool AddMulticastMembership(long group, long iface);
  bool DropMulticastMembership(long group, long iface);
  bool SetMulticastLoopback(bool on);
  bool SetMulticastInterface(unsigned long iface);
  // Back to the interface that the routing table gives.
  bool ClearMulticastInterface();
  bool SetMulticastTTL(unsigned char ttl);
  bool SetTTL(unsigned char ttl);

 private:
  int Send(const void* buf, long len, const InetAddress2* to, int flags);

  int m_socket = -1;  // -1: closed
};
