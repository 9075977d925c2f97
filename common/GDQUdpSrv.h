// Transport layer: the call channel over UDP, between this process and every peer that knows the password.
#pragma once

#include <atomic>
#include <cstdint>

#include "common/GDQUdpBase.h"
#include "common/InetAddress2.h"
#include "common/SimpleString.h"
#include "common/UdpSocket3.h"

namespace Velk {

// Logs 16 bytes in hexadecimal behind "label:", as Trace.
void logNonce(const char* label, unsigned char* bytes);

// The server of the channel. A peer sends "CONN", gets a 16-byte nonce, and from then on starts each of its
// datagrams with the cookie, the MD5 of nonce and password; behind it comes the call text. What one peer
// calls goes to the listeners and to every other admitted peer.
//
// One thread runs ReceiveTask. SendMsg, SendTo and Call may run on any thread meanwhile, without a lock:
// peers are only ever added, each complete before it is linked, and none is freed before the server. A sender
// can at worst miss a peer being added, or use a cookie while it is being replaced.
class GDQUdpSrv : public GDQUdpBase {
 public:
  GDQUdpSrv() = default;
  ~GDQUdpSrv() override;

  // Listens on the UDP port of every interface. The password is copied, and only when that worked.
  bool Open(const char* password, unsigned short port);
  // Closes the socket once nobody receives or sends any more.
  void Close() { m_socket.Close(); }

  // Serves peers. Returns only when there is no socket to receive from.
  void ReceiveTask();

  // False when the text is longer than kMaxText. An empty text sends each peer its bare cookie.
  bool SendMsg(const char* text) override;

  // Sends text to this endpoint alone, if it is admitted. Any thread, as SendMsg. Never waits for a full
  // socket buffer. False: not sent.
  bool SendTo(const InetAddress2& to, const char* text);

  // Who made the call that a listener is just being handed. For the listener's Call() only.
  const InetAddress2& Sender() const { return m_sender; }

  // The steps of ReceiveTask, for its thread only. A packet has room for a NUL behind its length and is
  // written to: relaying replaces the cookie, parsing ends the name.
  void HandleDatagram(const InetAddress2& from, unsigned char* packet, int length);
  // Notes the sender as a peer not yet admitted and sends it a nonce.
  void HandleConnect(const InetAddress2& from);
  // Whether the 16 bytes are the cookie of the sender, who is then admitted.
  bool IsValid(const InetAddress2& from, unsigned char* cookie);
  // Relays and delivers the call of an admitted peer. packet[length] is NUL.
  void HandlePacket(const InetAddress2& from, unsigned char* packet, unsigned int length);

 private:
  // A cookie that may be replaced while it is being sent: torn then, which costs that peer one datagram.
  class Cookie {
   public:
    void Store(const unsigned char* bytes);
    void Load(unsigned char* bytes) const;

   private:
    std::atomic<uint32_t> m_words[kCookieSize / sizeof(uint32_t)];
  };

  struct Peer {
    uint32_t ip;    // host byte order
    uint16_t port;  // host byte order
    Cookie cookie;
    std::atomic<bool> valid;  // has proved to know the cookie
    Peer* next;               // in the chain of its bucket
    Peer* branch[2];          // in the tree of its bucket
    std::atomic<Peer*> nextAdmitted;
    uint32_t order;  // rises along the chain

    uint32_t Key() const { return ip * port; }
  };

  // Anyone on the network can make records, so nothing may walk all of them: lookup descends a tree, and
  // sending follows the list of those that were admitted once, which takes the password. Both are woven
  // into the records. Other threads read only the admitted list.
  struct Bucket {
    Peer* first = nullptr;
    Peer* last = nullptr;
    Peer* root = nullptr;
    std::atomic<Peer*> admitted{nullptr};  // in the order of the chain; never shrinks
  };

  static constexpr unsigned kBuckets = 31;  // at most 32: m_inUse has a bit for each

  static uint32_t KeyOf(const InetAddress2& from);
  static void FreeChain(Peer* first);
  Peer** FindSlot(uint32_t key);
  Peer* AddPeer(const InetAddress2& from, const unsigned char* cookie);
  void Admit(Peer* peer);
  template <typename Action>
  void ForEachValid(Action action);
  const Peer* FindAdmitted(uint32_t key) const;
  void SendPacket(const Peer& peer, unsigned char* packet, unsigned size);

  UdpSocket3 m_socket;
  SimpleString m_password;
  InetAddress2 m_sender{0, 0};
  Bucket m_buckets[kBuckets];
  std::atomic<uint32_t> m_inUse{0};  // the buckets with admitted peers: a call need not look into the others
  Peer* m_free = nullptr;  // spare records, used before the heap; none comes back while the server runs
  uint32_t m_peerCount = 0;
};

}  // namespace Velk
