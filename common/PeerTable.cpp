#include "common/PeerTable.h"

#include <string.h>

namespace Velk {

void PeerTable::Cookie::Store(const unsigned char* bytes) {
  for (auto& word : m_words) {
    uint32_t value;
    memcpy(&value, bytes, sizeof value);
    word.store(value, std::memory_order_relaxed);
    bytes += sizeof value;
  }
}

void PeerTable::Cookie::Load(unsigned char* bytes) const {
  for (const auto& word : m_words) {
    const uint32_t value = word.load(std::memory_order_relaxed);
    memcpy(bytes, &value, sizeof value);
    bytes += sizeof value;
  }
}

namespace {

uint32_t KeyOf(uint32_t ip, uint16_t port) {
  return ip * port;
}

uint32_t KeyOf(const InetAddress2& address) {
  return KeyOf(static_cast<uint32_t>(address.GetIP()), address.GetPort());
}

uint64_t PlaceOf(uint32_t key, uint32_t number) {
  constexpr uint32_t kModulus = 31;
  return static_cast<uint64_t>(key % kModulus) << 32 | number;
}

}  // namespace

PeerTable::Peer::Peer(const InetAddress2& address, uint32_t number)
    : ip(static_cast<uint32_t>(address.GetIP())),
      port(address.GetPort()),
      place(PlaceOf(KeyOf(address), number)) {}

// The recursion is bounded: the tree has at most 33 levels, see FindLink().
void PeerTable::Free(Peer* peer) {
  if (peer == nullptr) return;
  for (const Link& branch : peer->branch) Free(branch);
  delete peer;
}

// Returns the link to the record with this key, or the null link where it belongs. Each level tests one bit
// of the key, scrambled so that similar keys separate early. After 32 levels any two keys have separated,
// even if an attacker chose them.
PeerTable::Link* PeerTable::FindLink(uint32_t key) {
  constexpr uint32_t kScramble = 0x9E3779B1;  // odd, so that different keys stay different
  uint32_t path = key * kScramble;
  Link* link = &m_root;
  for (;;) {
    Peer* const peer = link->load(std::memory_order_acquire);
    if (peer == nullptr || KeyOf(peer->ip, peer->port) == key) return link;
    link = &peer->branch[path >> 31];
    path <<= 1;
  }
}

PeerTable::Peer* PeerTable::Find(const InetAddress2& from) {
  return FindLink(KeyOf(from))->load(std::memory_order_acquire);
}

void PeerTable::Connect(const InetAddress2& from, const unsigned char* cookie) {
  Link* const link = FindLink(KeyOf(from));
  Peer* peer = link->load(std::memory_order_relaxed);
  const bool isNew = peer == nullptr;
  if (isNew) peer = new Peer(from, m_count++);
  peer->cookie.Store(cookie);
  peer->valid.store(false, std::memory_order_release);
  if (isNew) link->store(peer, std::memory_order_release);
}

void PeerTable::Admit(Peer* peer) {
  if (!peer->isListed) List(peer);
  peer->valid.store(true, std::memory_order_release);
}

void PeerTable::List(Peer* peer) {
  Link* link = &m_first;
  Peer* next = link->load(std::memory_order_relaxed);
  while (next != nullptr && next->place < peer->place) {
    link = &next->next;
    next = link->load(std::memory_order_relaxed);
  }
  peer->next.store(next, std::memory_order_relaxed);
  link->store(peer, std::memory_order_release);
  peer->isListed = true;
}

const PeerTable::Peer* PeerTable::ValidFrom(const Link& link) {
  const Peer* peer = link.load(std::memory_order_acquire);
  while (peer != nullptr && !peer->valid.load(std::memory_order_acquire))
    peer = peer->next.load(std::memory_order_acquire);
  return peer;
}

}  // namespace Velk
