// A server without a socket, and the datagrams that it takes and sends.
#pragma once

#include "common/GDQUdpSrv.h"
#include "common/HashMD5.h"
#include "tests/unit/Test.h"

using Endpoint = std::pair<uint32_t, uint16_t>;
using Datagrams = std::vector<std::pair<Endpoint, std::string>>;

// A server that collects what it would send, with the prefix "now:" if it must not wait. The test sets its
// time.
class UnpluggedServer final : public Velk::GDQUdpSrv {
 public:
  Datagrams m_sent;
  time_t m_now = 1;

 private:
  time_t Now() const override { return m_now; }
  int Send(const void* packet, unsigned size, const InetAddress2& to, bool mayWait) override {
    m_sent.emplace_back(Endpoint(to.GetIP(), to.GetPort()),
                        (mayWait ? "" : "now:") + std::string(static_cast<const char*>(packet), size));
    return static_cast<int>(size);
  }
};

inline InetAddress2 AddressOf(const Endpoint& endpoint) {
  return InetAddress2(static_cast<long>(endpoint.first), endpoint.second);
}

// Makes a nonce from its seed, or a cookie from nonce and password.
inline std::string Md5(const std::string& bytes) {
  Velk::HashMD5 md5;
  char digest[Velk::kMD5DigestLength];
  md5.AddBinary(bytes.data(), bytes.size());
  md5.GetDigest(reinterpret_cast<unsigned char*>(digest));
  return std::string(digest, sizeof digest);
}

// Passes one datagram to the server, in a buffer with just the spare byte for the NUL that the server adds.
inline void Give(Velk::GDQUdpSrv& server, const Endpoint& from, const std::string& datagram) {
  std::vector<unsigned char> packet(datagram.begin(), datagram.end());
  packet.push_back(0xFF);
  server.HandleDatagram(AddressOf(from), packet.data(), static_cast<int>(datagram.size()));
}
