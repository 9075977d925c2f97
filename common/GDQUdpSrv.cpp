#include "common/GDQUdpSrv.h"

#include <errno.h>
#include <string.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include "common/HashMD5.h"
#include "common/LogPrinter.h"

namespace Velk {

void logNonce(const char* label, unsigned char* bytes) {
  LogPrinter* printer = LogPrinter::Instance();
  // The printer would drop the line anyway; a handshake should not pay for writing it.
  if (!printer->m_traceEnabled.load(std::memory_order_relaxed)) return;
  static const char kDigits[] = "0123456789abcdef";
  char text[GDQUdpSrv::kCookieSize * 3 + 1];
  char* out = text;
  for (unsigned i = 0; i < GDQUdpSrv::kCookieSize; ++i) {
    *out++ = ' ';
    *out++ = kDigits[bytes[i] >> 4];
    *out++ = kDigits[bytes[i] & 15];
  }
  *out = '\0';
  printer->Log(Trace, nullptr, "%s:%s\n", label, text);
}

void GDQUdpSrv::Cookie::Store(const unsigned char* bytes) {
  for (auto& word : m_words) {
    uint32_t value;
    memcpy(&value, bytes, sizeof value);
    word.store(value, std::memory_order_relaxed);
    bytes += sizeof value;
  }
}

void GDQUdpSrv::Cookie::Load(unsigned char* bytes) const {
  for (const auto& word : m_words) {
    const uint32_t value = word.load(std::memory_order_relaxed);
    memcpy(bytes, &value, sizeof value);
    bytes += sizeof value;
  }
}

GDQUdpSrv::~GDQUdpSrv() {
  for (Bucket& bucket : m_buckets) FreeChain(bucket.first);
  FreeChain(m_free);
}

void GDQUdpSrv::FreeChain(Peer* first) {
  while (first != nullptr) {
    Peer* const next = first->next;
    delete first;
    first = next;
  }
}

bool GDQUdpSrv::Open(const char* password, unsigned short port) {
  // Holds 1,300 short calls where the kernel's default holds 277, or 550 without the privilege to exceed its
  // usual limit: a burst on loopback comes in less time than it takes to wake a thread.
  constexpr int kReceiveBuffer = 512 << 10;
  if (!m_socket.Open() || !m_socket.Bind(port, INADDR_ANY)) return false;
  m_socket.SetReceiveBuffer(kReceiveBuffer);
  m_password.Set(password);
  return true;
}

namespace {

// What one system call receives. Under load datagrams wait in numbers, and a call for each would cost a fifth
// of what the thread does.
struct Batch {
  static constexpr unsigned kMost = 8;

  struct Datagram {
    InetAddress2 from{0, 0};
    // One byte more than a datagram may have: tells the longer ones apart, and has room for the NUL.
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
    if (count >= 0) continue;
    // Without a socket nothing will ever come; the caller knows better what to do than to wait for it.
    if (errno == EBADF || errno == ENOTSOCK) return;
    // Interrupted or short of memory. It passes, but must not take the processor until it does.
    usleep(kErrorPause);
  }
}

void GDQUdpSrv::HandleDatagram(const InetAddress2& from, unsigned char* packet, int length) {
  static const char kConnect[] = {'C', 'O', 'N', 'N'};
  if (length < 0 || length > static_cast<int>(kMaxDatagram)) return;
  const unsigned size = static_cast<unsigned>(length);
  if (size == sizeof kConnect && memcmp(packet, kConnect, sizeof kConnect) == 0) HandleConnect(from);
  if (size < kCookieSize || !IsValid(from, packet)) return;
  if (size == kCookieSize) return;  // only wanted to be admitted
  packet[size] = '\0';
  HandlePacket(from, packet, size);
}

namespace {

unsigned char* PutLittleEndian(unsigned char* out, uint32_t value, unsigned bytes) {
  for (; bytes != 0; --bytes, value >>= 8) *out++ = static_cast<unsigned char>(value & 0xFF);
  return out;
}

void MakeNonce(HashMD5& md5, const InetAddress2& from, unsigned char* nonce) {
  unsigned char seed[10];
  unsigned char* out = PutLittleEndian(seed, static_cast<uint32_t>(time(nullptr)), 4);
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
  MakeNonce(md5, from, nonce);
  logNonce("srv nonce", nonce);
  md5.Reset();
  md5.AddBinary(nonce, sizeof nonce);
  md5.AddString(m_password.Str());
  md5.GetDigest(cookie);
  // In clear: the trace log is what a peer's author has to compare his own cookie with.
  logNonce("cookie", cookie);

  Peer** const slot = FindSlot(KeyOf(from));
  if (*slot != nullptr) {
    (*slot)->cookie.Store(cookie);
    (*slot)->valid.store(false, std::memory_order_release);
  } else {
    *slot = AddPeer(from, cookie);
  }

  const int sent = m_socket.Write(nonce, sizeof nonce, &from);
  LogPrinter::Instance()->Log(Info, nullptr, "srv wrote %d to 0x%lx:%u...\n", sent, from.GetIP(),
                              from.GetPort());
}

// The product alone tells peers apart, on purpose: endpoints with the same one are the same peer. They share
// the address of the first to connect and the cookie of the last.
uint32_t GDQUdpSrv::KeyOf(const InetAddress2& from) {
  return static_cast<uint32_t>(from.GetIP()) * from.GetPort();
}

// Where the tree has, or would have, the record with this key. Each step down follows one bit of the key,
// scrambled one to one so that neighbours part early: after 32 steps any two keys have parted, whoever
// chose them.
GDQUdpSrv::Peer** GDQUdpSrv::FindSlot(uint32_t key) {
  constexpr uint32_t kScramble = 0x9E3779B1;  // odd, so that no two keys become one
  uint32_t path = key * kScramble;
  Peer** slot = &m_buckets[key % kBuckets].root;
  while (*slot != nullptr && (*slot)->Key() != key) {
    slot = &(*slot)->branch[path >> 31];
    path <<= 1;
  }
  return slot;
}

GDQUdpSrv::Peer* GDQUdpSrv::AddPeer(const InetAddress2& from, const unsigned char* cookie) {
  Peer* const peer = m_free != nullptr ? m_free : new Peer;
  if (peer == m_free) m_free = peer->next;
  peer->ip = static_cast<uint32_t>(from.GetIP());
  peer->port = from.GetPort();
  peer->cookie.Store(cookie);
  peer->valid.store(false, std::memory_order_relaxed);
  peer->next = nullptr;
  peer->branch[0] = peer->branch[1] = nullptr;
  peer->nextAdmitted.store(nullptr, std::memory_order_relaxed);
  peer->order = m_peerCount++;

  Bucket& bucket = m_buckets[peer->Key() % kBuckets];
  (bucket.last != nullptr ? bucket.last->next : bucket.first) = peer;
  bucket.last = peer;
  return peer;
}

bool GDQUdpSrv::IsValid(const InetAddress2& from, unsigned char* cookie) {
  Peer* const peer = *FindSlot(KeyOf(from));
  if (peer == nullptr) return false;
  unsigned char expected[kCookieSize];
  peer->cookie.Load(expected);
  if (memcmp(expected, cookie, kCookieSize) != 0) {
    // No line end: the two trace lines complete the message.
    LogPrinter::Instance()->Log(Error, nullptr, "Cookies do not match:");
    logNonce("expected cookie", expected);
    logNonce("received cookie", cookie);
    return false;
  }
  Admit(peer);
  return true;
}

void GDQUdpSrv::Admit(Peer* peer) {
  if (peer->valid.load(std::memory_order_relaxed)) return;
  const uint32_t bucket = peer->Key() % kBuckets;
  std::atomic<Peer*>* link = &m_buckets[bucket].admitted;
  Peer* next = link->load(std::memory_order_relaxed);
  while (next != nullptr && next->order < peer->order) {
    link = &next->nextAdmitted;
    next = link->load(std::memory_order_relaxed);
  }
  if (next != peer) {  // not admitted before its latest Connect
    peer->nextAdmitted.store(next, std::memory_order_relaxed);
    link->store(peer, std::memory_order_release);
    m_inUse.fetch_or(uint32_t{1} << bucket, std::memory_order_release);
  }
  peer->valid.store(true, std::memory_order_release);
}

// Bucket by bucket, each in the order in which its peers connected first.
template <typename Action>
void GDQUdpSrv::ForEachValid(Action action) {
  uint32_t left = m_inUse.load(std::memory_order_acquire);
  for (; left != 0; left &= left - 1) {
    const Bucket& bucket = m_buckets[__builtin_ctz(left)];
    for (const Peer* peer = bucket.admitted.load(std::memory_order_acquire); peer != nullptr;
         peer = peer->nextAdmitted.load(std::memory_order_acquire)) {
      if (peer->valid.load(std::memory_order_acquire)) action(*peer);
    }
  }
}

void GDQUdpSrv::SendPacket(const Peer& peer, unsigned char* packet, unsigned size) {
  const InetAddress2 to(static_cast<long>(peer.ip), peer.port);
  peer.cookie.Load(packet);
  m_socket.Write(packet, static_cast<long>(size), &to);  // a lost datagram, like any other
}

void GDQUdpSrv::HandlePacket(const InetAddress2& from, unsigned char* packet, unsigned int length) {
  ForEachValid([&](const Peer& peer) {
    if (peer.ip == from.GetIP() && peer.port == from.GetPort()) return;
    SendPacket(peer, packet, length);
  });

  // The texts are used where they lie. A NUL that the peer sent ends them early.
  char* name = reinterpret_cast<char*>(packet) + kCookieSize;
  const char* const args = SplitCall(&name);
  m_sender = from;
  Deliver(name, args);
}

namespace {

// Puts text after the room for a cookie. Returns the size of the packet; 0: too long for one.
unsigned PutText(unsigned char* packet, const char* text) {
  const size_t length = strlen(text);
  if (length > GDQUdpSrv::kMaxText) return 0;
  // NOLINTNEXTLINE(bugprone-not-null-terminated-result): the datagram's length ends the text.
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
  ForEachValid([&](const Peer& peer) {
    SendPacket(peer, packet, size);
    printer->Log(Trace, nullptr, "GDQUdpSrv::Send to port %u!!!\n", peer.port);
  });
  return true;
}

// Through the admitted list: the tree belongs to the receive thread.
const GDQUdpSrv::Peer* GDQUdpSrv::FindAdmitted(uint32_t key) const {
  const Peer* peer = m_buckets[key % kBuckets].admitted.load(std::memory_order_acquire);
  while (peer != nullptr && peer->Key() != key) peer = peer->nextAdmitted.load(std::memory_order_acquire);
  return peer != nullptr && peer->valid.load(std::memory_order_acquire) ? peer : nullptr;
}

bool GDQUdpSrv::SendTo(const InetAddress2& to, const char* text) {
  unsigned char packet[kMaxDatagram];
  const unsigned size = PutText(packet, text != nullptr ? text : "");
  const Peer* const peer = FindAdmitted(KeyOf(to));
  if (size == 0 || peer == nullptr) return false;
  peer->cookie.Load(packet);
  return m_socket.WriteNow(packet, static_cast<long>(size), &to) >= 0;
}

}  // namespace Velk
