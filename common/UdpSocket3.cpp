#include "common/UdpSocket3.h"

#include <arpa/inet.h>
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>

bool UdpSocket3::Open() {
  Close();
  m_socket = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  return m_socket >= 0;
}

void UdpSocket3::Close() {
  if (m_socket < 0) return;
  close(m_socket);  // frees the descriptor even if it fails
  m_socket = -1;
}

bool UdpSocket3::Bind(unsigned short port, unsigned long ip) {
  // No interface has a multicast address or a higher one. 224.0.0.0 itself is let through.
  constexpr unsigned long kHighestBindable = 0xE0000000;
  if (m_socket < 0 || ip > kHighestBindable) return false;
  InetAddress2 address(static_cast<long>(ip), port);
  return BindAddress(address);
}

namespace {

template <typename T>
bool SetOption(int socket, int level, int option, const T& value) {
  return setsockopt(socket, level, option, &value, sizeof value) == 0;
}

}  // namespace

bool UdpSocket3::BindAddress(InetAddress2& addr) {
  // Lets a child forward lines from the same port as its supervisor.
  if (!SetOption(m_socket, SOL_SOCKET, SO_REUSEADDR, 1)) return false;
  return bind(m_socket, reinterpret_cast<const sockaddr*>(&addr.Native()), sizeof(sockaddr_in)) == 0;
}

unsigned long UdpSocket3::Inode() const {
  struct stat status {};
  return fstat(m_socket, &status) == 0 ? static_cast<unsigned long>(status.st_ino) : 0;
}

namespace {

// Parses a line of /proc/net/udp: "number: address:port remote:port state queues timer retransmits user
// timeout inode".
bool IsHolder(char* line, unsigned short port, unsigned long ours) {
  constexpr int kInode = 9;
  char* rest = nullptr;
  const char* local = nullptr;
  char* field = strtok_r(line, " ", &rest);
  for (int i = 0; field != nullptr && i < kInode; ++i, field = strtok_r(nullptr, " ", &rest)) {
    if (i == 1) local = field;
  }
  if (field == nullptr) return false;
  const char* const colon = local + strspn(local, "0");  // all zeros: any address
  return *colon == ':' && strtoul(colon + 1, nullptr, 16) == port && strtoul(field, nullptr, 10) != ours;
}

bool HasHolder(const char* table, unsigned short port, unsigned long ours) {
  FILE* const file = fopen(table, "re");
  if (file == nullptr) return false;
  char line[256];
  bool isFound = false;
  while (!isFound && fgets(line, sizeof line, file) != nullptr) isFound = IsHolder(line, port, ours);
  fclose(file);
  return isFound;
}

}  // namespace

bool UdpSocket3::IsHeldByOthers(unsigned short port, unsigned long ours) {
  // Not /proc/net: it is missing if proc(5) is mounted with subset=pid, as systemd can do.
  return HasHolder("/proc/self/net/udp", port, ours) || HasHolder("/proc/self/net/udp6", port, ours);
}

void UdpSocket3::ForbidSharing() {
  SetOption(m_socket, SOL_SOCKET, SO_REUSEADDR, 0);
}

void UdpSocket3::SetReceiveBuffer(int bytes) {
  if (!SetOption(m_socket, SOL_SOCKET, SO_RCVBUFFORCE, bytes))
    SetOption(m_socket, SOL_SOCKET, SO_RCVBUF, bytes);
}

int UdpSocket3::Read(void* buf, long len, InetAddress2* from) {
  if (len < 0) return -1;
  auto* sender = from != nullptr ? reinterpret_cast<sockaddr*>(&from->Native()) : nullptr;
  socklen_t senderSize = sizeof(sockaddr_in);
  return static_cast<int>(recvfrom(m_socket, buf, static_cast<size_t>(len), 0, sender, &senderSize));
}

int UdpSocket3::ReadMany(mmsghdr* headers, unsigned count) {
  const int received = recvmmsg(m_socket, headers, count, MSG_WAITFORONE, nullptr);
  if (received >= 0) return received;
  // A system call filter may refuse recvmmsg(2), with any errno, but allow recvfrom(2).
  msghdr& first = headers->msg_hdr;
  const ssize_t length = recvfrom(m_socket, first.msg_iov->iov_base, first.msg_iov->iov_len, 0,
                                  static_cast<sockaddr*>(first.msg_name), &first.msg_namelen);
  if (length < 0) return -1;
  headers->msg_len = static_cast<unsigned>(length);
  return 1;
}

int UdpSocket3::Write(const void* buf, long len, const InetAddress2* to) {
  return Send(buf, len, to, 0);
}

int UdpSocket3::WriteNow(const void* buf, long len, const InetAddress2* to) {
  return Send(buf, len, to, MSG_DONTWAIT);
}

int UdpSocket3::Send(const void* buf, long len, const InetAddress2* to, int flags) {
  if (len < 0 || to == nullptr) return -1;
  const auto* receiver = reinterpret_cast<const sockaddr*>(&to->Native());
  return static_cast<int>(
      sendto(m_socket, buf, static_cast<size_t>(len), flags, receiver, sizeof(sockaddr_in)));
}

namespace {

int WaitFor(int socket, bool forRead, unsigned long ms) {
  // FD_SET would write outside the fd_set.
  if (socket < 0 || socket >= FD_SETSIZE) {
    errno = EBADF;
    return -1;
  }
  fd_set watched;
  FD_ZERO(&watched);
  FD_SET(socket, &watched);
  timeval limit{};
  limit.tv_sec = static_cast<time_t>(ms / 1000);
  limit.tv_usec = static_cast<suseconds_t>(ms % 1000 * 1000);
  const int ready = select(socket + 1, forRead ? &watched : nullptr, forRead ? nullptr : &watched, nullptr,
                           ms == UdpSocket3::kForever ? nullptr : &limit);
  return ready > 0 ? 1 : ready;
}

}  // namespace

int UdpSocket3::WaitForRead(unsigned long ms) {
  return WaitFor(m_socket, true, ms);
}

int UdpSocket3::WaitForWrite(unsigned long ms) {
  return WaitFor(m_socket, false, ms);
}

namespace {

in_addr ToNetwork(unsigned long ip) {
  return in_addr{htonl(static_cast<uint32_t>(ip))};
}

bool SetMembership(int socket, int option, long group, long iface) {
  ip_mreq request{};
  request.imr_multiaddr = ToNetwork(static_cast<unsigned long>(group));
  request.imr_interface = ToNetwork(static_cast<unsigned long>(iface));
  return SetOption(socket, IPPROTO_IP, option, request);
}

}  // namespace

bool UdpSocket3::AddMulticastMembership(long group, long iface) {
  return SetMembership(m_socket, IP_ADD_MEMBERSHIP, group, iface);
}

bool UdpSocket3::DropMulticastMembership(long group, long iface) {
  return SetMembership(m_socket, IP_DROP_MEMBERSHIP, group, iface);
}

bool UdpSocket3::SetMulticastLoopback(bool on) {
  return SetOption(m_socket, IPPROTO_IP, IP_MULTICAST_LOOP, static_cast<unsigned char>(on ? 1 : 0));
}

bool UdpSocket3::SetMulticastInterface(unsigned long iface) {
  return SetOption(m_socket, IPPROTO_IP, IP_MULTICAST_IF, ToNetwork(iface));
}

bool UdpSocket3::ClearMulticastInterface() {
  return SetMulticastInterface(INADDR_ANY);
}

bool UdpSocket3::SetMulticastTTL(unsigned char ttl) {
  return SetOption(m_socket, IPPROTO_IP, IP_MULTICAST_TTL, ttl);
}

bool UdpSocket3::SetTTL(unsigned char ttl) {
  return SetOption(m_socket, IPPROTO_IP, IP_TTL, ttl);
}
