// Transport layer: the peers of the call channel.
#pragma once

#include <atomic>
#include <cstdint>

#include "common/GDQUdpBase.h"
#include "common/InetAddress2.h"

namespace Velk {

// Keeps a record of every peer that ever connected, and whether it is admitted. Only the receive thread calls
// Connect() and Admit(). Any thread may look up and iterate at the same time, without a lock: a record is
// complete before it is linked, and is never freed before the table. A reader may miss a peer that is just
// being added.
//
// Anyone on the network can create records, so nothing iterates over all of them: lookup uses a tree, and
// iteration a list of the peers that were ever admitted. To be admitted, a peer needs the password.
class PeerTable {
 public:
  // A Load() during a Store() may mix the old cookie and the new: the peer then ignores the datagram sent
  // with it.
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
    std::atomic<bool> valid{false};  // admitted: has sent its latest cookie
    Cookie cookie;
    std::atomic<Peer*> branch[2] = {{nullptr}, {nullptr}};  // children in the tree
    std::atomic<Peer*> next{nullptr};                       // in the list
    const uint64_t place;                                   // sort key of the list, see FirstValid()
  };

  PeerTable() = default;
  PeerTable(const PeerTable&) = delete;
  PeerTable& operator=(const PeerTable&) = delete;
  ~PeerTable() { Free(m_root); }

  // Stores the peer's new cookie. The peer is not admitted until it sends that cookie.
  void Connect(const InetAddress2& from, const unsigned char* cookie);

  // Finds by key, the product of address and port. Null: none connected. Endpoints with the same product
  // share a record on purpose, with the first one's address and the last one's cookie.
  Peer* Find(const InetAddress2& from);

  // Marks the peer as admitted. The first time, also finds its place in the list: with 10,000 admitted peers
  // that takes 13 us, like sending three datagrams (AdmitAmong in bench/micro.cpp).
  void Admit(Peer* peer);

  // Iterate over the admitted peers; null after the last. Ordered by key modulo 31, then by first connect.
  const Peer* FirstValid() const { return ValidFrom(m_first); }
  static const Peer* NextValid(const Peer* peer) { return ValidFrom(peer->next); }

 private:
  using Link = std::atomic<Peer*>;

  static const Peer* ValidFrom(const Link& link);
  static void Free(Peer* peer);
  Link* FindLink(uint32_t key);
  void List(Peer* peer);

  Link m_root{nullptr};
  Link m_first{nullptr};  // head of the list, which never shrinks
  uint32_t m_count = 0;   // of records
};

}  // namespace Velk
