#include "common/GDQUdpSrv.h"

#include <errno.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include "common/HashMD5.h"
#include "common/LogPrinter.h"

namespace Velk {

void logNonce(const char* label, unsigned char* bytes) {
  static const char kDigits[] = "0123456789abcdef";
  char text[GDQUdpSrv::kCookieSize * 3 + 1];
  char* out = text;
  for (unsigned i = 0; i < GDQUdpSrv::kCookieSize; ++i) {
    *out++ = ' ';
    *out++ = kDigits[bytes[i] >> 4];
    *out++ = kDigits[bytes[i] & 15];
  }
  *out = '\0';
  LogPrinter::Instance()->Log(Trace, nullptr, "%s:%s\n", label, text);
}

bool GDQUdpSrv::Open(const char* password, unsigned short port) {
  // A buffer of this size holds 1,300 short calls; without CAP_NET_ADMIN it is smaller and holds 550. The
  // default holds 277. A burst on loopback can arrive before the receive thread wakes up.
  constexpr int kReceiveBuffer = 512 << 10;
  if (!m_socket.Open() || !m_socket.Bind(port, INADDR_ANY)) return false;
  // Otherwise another program could bind to the port, take the calls and acknowledge them.
  m_socket.ForbidSharing();
  m_socket.SetReceiveBuffer(kReceiveBuffer);
  m_password.Set(password);
  return true;
}

namespace {

// The datagrams of one system call. At 100,000 lines a second the receive thread takes 1.0 us a line; with
// one system call per datagram it takes 1.3 us.
struct Batch {
  static constexpr unsigned kMost = 8;

  struct Datagram {
    InetAddress2 from{0, 0};
    // One byte more than the longest datagram, to detect longer ones and for the NUL.
    unsigned char bytes[GDQUdpSrv::kMaxDatagram + 1];
    iovec space{bytes, sizeof bytes};
  };

  Batch() {
    for (unsigned i = 0; i < kMost; ++i) {
      headers[i].msg_hdr.msg_name = &datagrams[i].from.Native();
      headers[i].msg_hdr.msg_namelen = sizeof(sockaddr_in);
      headers[i].msg_hdr.msg_iov = &datagrams[i].space;
      headers[i].msg_hdr.msg_iovlen = 1;
    }
  }
  Batch(const Batch&) = delete;  // the headers point at the datagrams
  Batch& operator=(const Batch&) = delete;

  Datagram datagrams[kMost];
  mmsghdr headers[kMost]{};
};

}  // namespace

void GDQUdpSrv::ReceiveTask() {
  constexpr useconds_t kErrorPause = 10000;
  Batch batch;
  for (;;) {
    const int count = m_socket.ReadMany(batch.headers, Batch::kMost);
    for (int i = 0; i < count; ++i) {
      Batch::Datagram& datagram = batch.datagrams[i];
      HandleDatagram(datagram.from, datagram.bytes, static_cast<int>(batch.headers[i].msg_len));
    }
    if (count >= 0) {
      AfterBatch(count < static_cast<int>(Batch::kMost));
      continue;
    }
    // The socket is closed.
    if (errno == EBADF || errno == ENOTSOCK) return;
    // Interrupted or out of memory. The pause keeps a lasting error from using all CPU time.
    usleep(kErrorPause);
  }
}

void GDQUdpSrv::HandleDatagram(const InetAddress2& from, unsigned char* packet, int length) {
  static const char kConnect[] = {'C', 'O', 'N', 'N'};
  if (length < 0 || length > static_cast<int>(kMaxDatagram)) return;
  const unsigned size = static_cast<unsigned>(length);
  if (size == sizeof kConnect && memcmp(packet, kConnect, sizeof kConnect) == 0) HandleConnect(from);
  if (size < kCookieSize || !IsValid(from, packet)) return;
  if (size == kCookieSize) return;  // no call: only admits the peer
  packet[size] = '\0';
  HandlePacket(from, packet, size);
}

namespace {

unsigned char* PutLittleEndian(unsigned char* out, uint32_t value, unsigned bytes) {
  for (; bytes != 0; --bytes, value >>= 8) *out++ = static_cast<unsigned char>(value & 0xFF);
  return out;
}

void MakeNonce(HashMD5& md5, time_t now, const InetAddress2& from, unsigned char* nonce) {
  unsigned char seed[10];
  unsigned char* out = PutLittleEndian(seed, static_cast<uint32_t>(now), 4);
  out = PutLittleEndian(out, static_cast<uint32_t>(from.GetIP()), 4);
  PutLittleEndian(out, from.GetPort(), 2);
  md5.AddBinary(seed, sizeof seed);
  md5.GetDigest(nonce);
}

}  // namespace

void GDQUdpSrv::HandleConnect(const InetAddress2& from) {
  unsigned char nonce[kCookieSize];
  unsigned char cookie[kCookieSize];
  HashMD5 md5;
  MakeNonce(md5, Now(), from, nonce);
  logNonce("srv nonce", nonce);
  md5.Reset();
  md5.AddBinary(nonce, sizeof nonce);
  md5.AddString(m_password.Str());
  md5.GetDigest(cookie);
  // Logged in clear, so that the author of a peer can compare cookies.
  logNonce("cookie", cookie);

  m_peers.Connect(from, cookie);
  const int sent = Send(nonce, sizeof nonce, from, true);
  LogPrinter::Instance()->Log(Info, nullptr, "srv wrote %d to 0x%lx:%u...\n", sent, from.GetIP(),
                              from.GetPort());
}

bool GDQUdpSrv::IsValid(const InetAddress2& from, unsigned char* cookie) {
  PeerTable::Peer* const peer = m_peers.Find(from);
  if (peer == nullptr) return false;
  unsigned char expected[kCookieSize];
  peer->cookie.Load(expected);
  if (memcmp(expected, cookie, kCookieSize) != 0) {
    // No line feed: the next message follows on this line. With trace on, that is the expected cookie.
    LogPrinter::Instance()->Log(Error, nullptr, "Cookies do not match:");
    logNonce("expected cookie", expected);
    logNonce("received cookie", cookie);
    return false;
  }
  m_peers.Admit(peer);
  return true;
}

// Errors are ignored: any datagram may be lost.
void GDQUdpSrv::SendPacket(const PeerTable::Peer& peer, unsigned char* packet, unsigned size) {
  peer.cookie.Load(packet);
  Send(packet, size, InetAddress2(static_cast<long>(peer.ip), peer.port), true);
}

void GDQUdpSrv::HandlePacket(const InetAddress2& from, unsigned char* packet, unsigned int length) {
  for (const auto* peer = m_peers.FirstValid(); peer != nullptr; peer = m_peers.NextValid(peer)) {
    if (peer->ip != from.GetIP() || peer->port != from.GetPort()) SendPacket(*peer, packet, length);
  }

  // The texts stay in the packet. A NUL from the peer ends them early.
  char* name = reinterpret_cast<char*>(packet) + kCookieSize;
  const char* const args = SplitCall(&name);
  m_sender = from;
  Deliver(name, args);
}

namespace {

// Copies text to its place after the cookie. Returns the size of the packet; 0: too long.
unsigned PutText(unsigned char* packet, const char* text) {
  const size_t length = strlen(text);
  if (length > GDQUdpSrv::kMaxText) return 0;
  // NOLINTNEXTLINE(bugprone-not-null-terminated-result): the size of the datagram ends the text.
  memcpy(packet + GDQUdpSrv::kCookieSize, text, length);
  return static_cast<unsigned>(GDQUdpSrv::kCookieSize + length);
}

}  // namespace

bool GDQUdpSrv::SendMsg(const char* text) {
  if (text == nullptr) text = "";
  LogPrinter* printer = LogPrinter::Instance();
  printer->Log(Trace, nullptr, "GDQUdpSrv::SendMsg('%s')\n", text);
  unsigned char packet[kMaxDatagram];
  const unsigned size = PutText(packet, text);
  if (size == 0) return false;
  for (const auto* peer = m_peers.FirstValid(); peer != nullptr; peer = m_peers.NextValid(peer)) {
    SendPacket(*peer, packet, size);
    printer->Log(Trace, nullptr, "GDQUdpSrv::Send to port %u!!!\n", peer->port);
  }
  return true;
}

bool GDQUdpSrv::SendTo(const InetAddress2& to, const char* text) {
  unsigned char packet[kMaxDatagram];
  const unsigned size = PutText(packet, text != nullptr ? text : "");
  const PeerTable::Peer* const peer = m_peers.Find(to);
  if (size == 0 || peer == nullptr || !peer->valid.load(std::memory_order_acquire)) return false;
  peer->cookie.Load(packet);
  return Send(packet, size, to, false) >= 0;
}

time_t GDQUdpSrv::Now() const {
  return time(nullptr);
}

int GDQUdpSrv::Send(const void* packet, unsigned size, const InetAddress2& to, bool mayWait) {
  const auto length = static_cast<long>(size);
  return mayWait ? m_socket.Write(packet, length, &to) : m_socket.WriteNow(packet, length, &to);
}

}  // namespace Velk
