// Compares the server with a simple model, for any sequence of datagrams.
#pragma once

#include "tests/unit/CapturedLog.h"
#include "tests/unit/Choices.h"
#include "tests/unit/Peers.h"

inline std::string Hex(const std::string& bytes) {
  std::string text;
  const char* const digits = "0123456789abcdef";
  for (const char byte : bytes) text += {' ', digits[(byte >> 4) & 15], digits[byte & 15]};
  return text;
}

class ServerModel final : public Velk::GDOBase {
 public:
  explicit ServerModel(Choices choices) : m_choices(choices) {}
  virtual ~ServerModel() = default;

  void Call(const char* name, const char* args) override { m_heard.emplace_back(name, args); }

  void Run() {
    CapturedLog log(true);
    m_server.AddListener(this);
    m_server.AddListener(this);
    for (; m_choices.AreLeft() && !::testing::Test::HasFailure(); m_server.m_now += m_choices.Below(3)) {
      const unsigned operation = m_choices.Below(16);
      if (operation == 0) {
        const std::string text = MakeText();
        EXPECT_EQ(SendMsg(text), m_server.SendMsg(text.c_str()));
      } else if (operation == 1) {
        const Endpoint to = MakeEndpoint();
        const std::string text = MakeText();
        EXPECT_EQ(SendTo(to, text), m_server.SendTo(AddressOf(to), text.c_str()));
      } else {
        const Endpoint from = MakeEndpoint();
        const std::string datagram = MakeDatagram(from);
        Take(from, datagram);
        Give(m_server, from, datagram);
      }
      EXPECT_EQ(std::exchange(m_sent, {}), std::exchange(m_server.m_sent, {}));
      EXPECT_EQ(std::exchange(m_calls, {}), std::exchange(m_heard, {}));
      EXPECT_EQ(std::exchange(m_lines, {}), log.Take());
    }
  }

 private:
  struct Peer {
    Endpoint endpoint;
    std::string cookie;
    bool isValid;
  };

  static uint32_t Key(const Endpoint& endpoint) { return endpoint.first * endpoint.second; }

  // Many keys are equal modulo 31, which decides the order of relaying. Some endpoints have the same key, so
  // they are one peer: {2, 6} and {4, 3}, {0x80000000, 2} and {0, 0}, and those made from n and n + 3 if
  // n % 4 == 0.
  Endpoint MakeEndpoint() {
    static const Endpoint kSpecial[] = {{2, 6},          {4, 3},          {1, 31},         {1, 62},
                                        {0xFFFFFFFF, 1}, {0x80000000, 2}, {0x7F000001, 9}, {0, 0}};
    if (m_choices.Below(4) != 0) return kSpecial[m_choices.Below(8)];
    const unsigned n = m_choices.Below(200);
    const auto port = static_cast<uint16_t>(2000 + n / 4 * 124);
    return n % 4 == 3 ? Endpoint(0x02000000, port / 2) : Endpoint(0x01000000, port + n % 4 * 62);
  }

  std::string MakeDatagram(const Endpoint& from) {
    const size_t kCookieSize = Velk::GDQUdpSrv::kCookieSize;
    const Peer* const peer = Find(from);
    std::string cookie = peer != nullptr ? peer->cookie : std::string(kCookieSize, 'c');
    const unsigned kind = m_choices.Below(6);
    if (kind < 2) return "CONN";
    if (kind == 2) return m_choices.Bytes(m_choices.Below(20));
    if (kind == 3) cookie[m_choices.Below(kCookieSize)] ^= static_cast<char>(1 << m_choices.Below(8));
    if (kind == 4) return cookie + std::string(Velk::GDQUdpSrv::kMaxText - 2 + m_choices.Below(4), ' ');
    return cookie + m_choices.Bytes(m_choices.Below(kind == 3 ? 4 : 40));
  }

  std::string MakeText() {
    if (m_choices.Below(8) != 0) return m_choices.Bytes(m_choices.Below(20)).c_str();
    return std::string(Velk::GDQUdpSrv::kMaxText - 1 + m_choices.Below(3), 'x');
  }

  bool SendMsg(const std::string& text) {
    m_lines.push_back("0:GDQUdpSrv::SendMsg('" + text + "')\n");
    if (text.size() > Velk::GDQUdpSrv::kMaxText) return false;
    Relay(text, nullptr);
    for (const auto& [to, datagram] : m_sent)
      m_lines.push_back("0:GDQUdpSrv::Send to port " + std::to_string(to.second) + "!!!\n");
    return true;
  }

  bool SendTo(const Endpoint& to, const std::string& text) {
    const Peer* const peer = Find(to);
    if (text.size() > Velk::GDQUdpSrv::kMaxText || peer == nullptr || !peer->isValid) return false;
    m_sent.emplace_back(to, "now:" + peer->cookie + text);
    return true;
  }

  // Predicts what the server sends, calls and logs for a datagram.
  void Take(const Endpoint& from, const std::string& datagram) {
    if (datagram.size() > Velk::GDQUdpSrv::kMaxDatagram) return;
    Peer* peer = Find(from);
    if (datagram == "CONN") return Connect(from, peer);
    const size_t kCookieSize = Velk::GDQUdpSrv::kCookieSize;
    if (peer == nullptr || datagram.size() < kCookieSize) return;
    const std::string cookie = datagram.substr(0, kCookieSize);
    if (cookie != peer->cookie) {
      m_lines = {"3:Cookies do not match:", "0:expected cookie:" + Hex(peer->cookie) + "\n",
                 "0:received cookie:" + Hex(cookie) + "\n"};
      return;
    }
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

  void Connect(const Endpoint& from, Peer* peer) {
    std::string seed;
    for (const int shift : {0, 8, 16, 24}) seed += static_cast<char>(m_server.m_now >> shift);
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
    char wrote[64];
    snprintf(wrote, sizeof wrote, "1:srv wrote 16 to 0x%x:%u...\n", from.first, from.second);
    m_lines = {"0:srv nonce:" + Hex(nonce) + "\n", "0:cookie:" + Hex(peer->cookie) + "\n", wrote};
  }

  Choices m_choices;
  UnpluggedServer m_server;
  std::map<uint32_t, std::vector<Peer>> m_chains;
  Datagrams m_sent;
  std::vector<std::pair<std::string, std::string>> m_calls, m_heard;
  std::vector<std::string> m_lines;
};
