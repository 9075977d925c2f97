// What peers of the channel's server send.
#pragma once

#include "common/GDQUdpSrv.h"
#include "common/HashMD5.h"
#include "tests/unit/Test.h"

using Endpoint = std::pair<uint32_t, uint16_t>;

inline InetAddress2 AddressOf(const Endpoint& endpoint) {
  return InetAddress2(static_cast<long>(endpoint.first), endpoint.second);
}

// The cookie, made of the nonce and the password.
inline std::string Md5(const std::string& bytes) {
  Velk::HashMD5 md5;
  char digest[Velk::kMD5DigestLength];
  md5.AddBinary(bytes.data(), bytes.size());
  md5.GetDigest(reinterpret_cast<unsigned char*>(digest));
  return std::string(digest, sizeof digest);
}

// Lets the server see one datagram, in a buffer just large enough for it.
inline void Give(Velk::GDQUdpSrv& server, const Endpoint& from, const std::string& datagram) {
  std::vector<unsigned char> packet(datagram.begin(), datagram.end());
  packet.push_back(0xFF);
  server.HandleDatagram(AddressOf(from), packet.data(), static_cast<int>(datagram.size()));
}
