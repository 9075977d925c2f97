// A simple second parser for dotted quads.
#pragma once

#include "common/InetAddress2.h"
#include "tests/unit/Test.h"

inline bool ModelQuad(const std::string& text, unsigned long* ip) {
  std::string kept;
  for (const char c : text.substr(0, text.find(':'))) {
    if (c == '.' || (c >= '0' && c <= '9')) kept += c;
  }
  std::vector<std::string> octets(1);
  for (const char c : kept) {
    if (c == '.') octets.emplace_back();
    if (c != '.') octets.back() += c;
  }
  *ip = 0;
  if (octets.size() != 4) return false;
  unsigned long address = 0;
  for (std::string octet : octets) {
    if (octet.empty()) return false;
    while (octet.size() > 1 && octet[0] == '0') octet.erase(0, 1);
    if (octet.size() > 3 || std::stoi(octet) > 255) return false;
    address = address * 256 + std::stoul(octet);
  }
  *ip = address;
  return true;
}

inline bool CheckQuad(const std::string& text) {
  unsigned long ip = 0;
  const bool isQuad = ModelQuad(text, &ip);
  bool error = isQuad;
  EXPECT_EQ(ip, InetAddress2::StringToIP(text.c_str(), &error)) << text;
  EXPECT_EQ(!isQuad, error) << text;
  return isQuad;
}

inline std::string TextOf(const InetAddress2& address) {
  char text[InetAddress2::kMaxText];
  char* const end = InetAddress2::IPToString(text, address.GetIP(), address.GetPort());
  return std::string(text, end);
}
