// The channel's server by any sequence of datagrams, beside a list of peers. Clock and socket are the
// target's.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <time.h>

#include <map>

#include "common/GDQUdpSrv.h"
#include "common/HashMD5.h"
#include "tests/unit/CapturedLog.h"
#include "tests/unit/Choices.h"

namespace {

using Velk::GDQUdpSrv;
using Endpoint = std::pair<uint32_t, uint16_t>;
using Datagrams = std::vector<std::pair<Endpoint, std::string>>;
using Calls = std::vector<std::pair<std::string, std::string>>;

time_t s_now;
Datagrams s_sent;

struct Peer {
  Endpoint endpoint;
  std::string cookie;
  bool isValid;
};

struct Listener final : Velk::GDOBase {
  void Call(const char* name, const char* args) override { m_calls.emplace_back(name, args); }
  Calls m_calls;
};

std::string Md5(const std::string& bytes) {
  Velk::HashMD5 md5;
  unsigned char digest[GDQUdpSrv::kCookieSize];
  md5.AddBinary(bytes.data(), bytes.size());
  md5.GetDigest(digest);
  return std::string(digest, digest + sizeof digest);
}

class Model {
 public:
  // What a datagram makes the server send and call.
  void Take(const Endpoint& from, const std::string& datagram) {
    if (datagram.size() > GDQUdpSrv::kMaxDatagram) return;
    Peer* peer = Find(from);
    if (datagram == "CONN") return Connect(from, peer);
    const size_t kCookieSize = GDQUdpSrv::kCookieSize;
    if (peer == nullptr || datagram.size() < kCookieSize) return;
    if (datagram.compare(0, kCookieSize, peer->cookie) != 0) return;
    peer->isValid = true;
    if (datagram.size() == kCookieSize) return;
    Relay(datagram.substr(kCookieSize), &from);
    const std::string text = datagram.c_str() + kCookieSize;
    const std::string space = " \t\n\v\f\r";
    const std::string call = text.substr(std::min(text.find_first_not_of(space), text.size()));
    const size_t end = std::min(call.find_first_of(space), call.size());
    m_calls.emplace_back(call.substr(0, end), end < call.size() ? call.substr(end + 1) : "");
  }

  void Relay(const std::string& text, const Endpoint* sender) {
    for (const auto& [bucket, chain] : m_chains) {
      for (const Peer& peer : chain) {
        if (!peer.isValid || (sender != nullptr && peer.endpoint == *sender)) continue;
        m_sent.emplace_back(peer.endpoint, peer.cookie + text);
      }
    }
  }

  Peer* Find(const Endpoint& from) {
    for (Peer& peer : m_chains[Key(from) % 31]) {
      if (Key(peer.endpoint) == Key(from)) return &peer;
    }
    return nullptr;
  }

  Datagrams m_sent;
  Calls m_calls;

 private:
  static uint32_t Key(const Endpoint& endpoint) { return endpoint.first * endpoint.second; }

  void Connect(const Endpoint& from, Peer* peer) {
    std::string seed;
    for (const int shift : {0, 8, 16, 24}) seed += static_cast<char>(s_now >> shift);
    for (const int shift : {0, 8, 16, 24}) seed += static_cast<char>(from.first >> shift);
    for (const int shift : {0, 8}) seed += static_cast<char>(from.second >> shift);
    const std::string nonce = Md5(seed);
    m_sent.emplace_back(from, nonce);
    if (peer == nullptr) {
      m_chains[Key(from) % 31].push_back({from, "", false});
      peer = &m_chains[Key(from) % 31].back();
    }
    peer->cookie = Md5(nonce);  // the password is empty until the server listens
    peer->isValid = false;
  }

  std::map<uint32_t, std::vector<Peer>> m_chains;
};

// Endpoints of the same product are one peer: 2 * 6 and 4 * 3. The others share buckets and bits.
const Endpoint kEndpoints[] = {{2, 6},          {4, 3},          {1, 31},         {1, 62},
                               {0xFFFFFFFF, 1}, {0x80000000, 2}, {0x7F000001, 9}, {0, 0}};

std::string MakeDatagram(Choices& choices, Model& model, const Endpoint& from) {
  const Peer* const peer = model.Find(from);
  std::string cookie = peer != nullptr ? peer->cookie : std::string(GDQUdpSrv::kCookieSize, 'c');
  switch (choices.Below(6)) {
    case 0:
    case 1:
      return "CONN";
    case 2:
      return choices.Bytes(choices.Below(20));
    case 3:
      cookie[choices.Below(GDQUdpSrv::kCookieSize)] ^= static_cast<char>(1 << choices.Below(8));
      return cookie + choices.Bytes(choices.Below(4));
    case 4:
      return cookie + std::string(GDQUdpSrv::kMaxText - 2 + choices.Below(4), ' ');
    default:
      return cookie + choices.Bytes(choices.Below(40));
  }
}

}  // namespace

extern "C" {

time_t time(time_t*) {
  return s_now;
}

ssize_t sendto(int, const void* bytes, size_t size, int, const sockaddr* to, socklen_t) {
  InetAddress2 address(0, 0);
  memcpy(&address.Native(), to, sizeof address.Native());
  s_sent.emplace_back(Endpoint(address.GetIP(), address.GetPort()),
                      std::string(static_cast<const char*>(bytes), size));
  return static_cast<ssize_t>(size);
}

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static CapturedLog log(false);
  Choices choices(data, size);
  Model model;
  Listener listener;
  GDQUdpSrv server;
  server.AddListener(&listener);
  s_now = 0;
  s_sent.clear();
  while (choices.AreLeft()) {
    s_now += choices.Below(3);
    if (choices.Below(16) == 0) {
      const std::string text = choices.Bytes(choices.Below(20)).c_str();
      model.Relay(text, nullptr);
      EXPECT_TRUE(server.SendMsg(text.c_str()));
      continue;
    }
    const Endpoint& from = kEndpoints[choices.Below(8)];
    const std::string datagram = MakeDatagram(choices, model, from);
    std::vector<unsigned char> packet(datagram.begin(), datagram.end());
    packet.push_back(0xFF);
    model.Take(from, datagram);
    server.HandleDatagram(InetAddress2(static_cast<long>(from.first), from.second), packet.data(),
                          static_cast<int>(datagram.size()));
    EXPECT_EQ(model.m_sent, s_sent);
    EXPECT_EQ(model.m_calls, listener.m_calls);
  }
  log.Take();
  return 0;
}

}  // extern "C"
