// Transport layer: the peers of the call channel.
#pragma once

#include <atomic>
#include <cstdint>

#include "common/GDQUdpBase.h"
#include "common/InetAddress2.h"

namespace Velk {

// Keeps a record of each peer that ever connected, and which of them are admitted. The receive thread alone
// connects and admits. Any thread may look up and walk meanwhile, without a lock: a record is complete before
// it is linked, and none is freed before the table. A reader can at worst miss a peer that is being added.
//
// Anyone on the network can make records, so nothing walks all of them: look-up descends a tree. Walks follow
// a list of the peers that were admitted at least once, which takes the password.
class PeerTable {
 public:
  // May be loaded while it is replaced. The result is then a mix, which costs the peer one datagram.
  class Cookie {
   public:
    void Store(const unsigned char* bytes);
    void Load(unsigned char* bytes) const;

   private:
    std::atomic<uint32_t> m_words[GDQUdpBase::kCookieSize / sizeof(uint32_t)];
  };

  struct Peer {
    Peer(const InetAddress2& address, uint32_t number);

    const uint32_t ip;               // host byte order
    const uint16_t port;             // host byte order
    bool isListed = false;           // for the receive thread only
    std::atomic<bool> valid{false};  // has sent its latest cookie
    Cookie cookie;
    std::atomic<Peer*> branch[2] = {{nullptr}, {nullptr}};  // in the tree
    std::atomic<Peer*> next{nullptr};                       // in the list
    const uint64_t place;                                   // rises along the list, see FirstValid
  };

  PeerTable() = default;
  PeerTable(const PeerTable&) = delete;
  PeerTable& operator=(const PeerTable&) = delete;
  ~PeerTable() { Free(m_root); }

  // Gives the peer at this address its cookie. It is not admitted until it sends that.
  void Connect(const InetAddress2& from, const unsigned char* cookie);

  // Null: never connected. The product of address and port alone tells peers apart, on purpose: endpoints
  // with the same one share a record, which has the address of the first and the cookie of the last.
  Peer* Find(const InetAddress2& from);

  // The first time costs a walk to the peer's place in the list: 13 us among 10,000 admitted peers, as much
  // as sending three datagrams (AdmitAmong in bench/micro.cpp).
  void Admit(Peer* peer);

  // The valid peers one by one, null after the last. The order is that of their keys modulo 31, and among
  // equal ones that of their first connects.
  const Peer* FirstValid() const { return ValidFrom(m_first); }
  static const Peer* NextValid(const Peer* peer) { return ValidFrom(peer->next); }

 private:
  using Link = std::atomic<Peer*>;

  static const Peer* ValidFrom(const Link& link);
  static void Free(Peer* peer);
  Link* FindLink(uint32_t key);
  void List(Peer* peer);

  Link m_root{nullptr};
  Link m_first{nullptr};  // of the list, which never shrinks
  uint32_t m_count = 0;   // of records
};

}  // namespace Velk
