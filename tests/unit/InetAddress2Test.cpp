#include "common/InetAddress2.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

#include "tests/unit/CapturedLog.h"
#include "tests/unit/QuadModel.h"

namespace {

std::string Text(const InetAddress2& address) {
  char text[InetAddress2::kMaxText];
  char* const end = InetAddress2::IPToString(text, address.GetIP(), address.GetPort());
  return std::string(text, end);
}

}  // namespace

TEST(InetAddress2, PassesItsSelfTest) {
  EXPECT_TRUE(InetAddress2::Test());
}

TEST(InetAddress2, ReadsQuadsLikeTheModel) {
  std::mt19937 random(1);
  const std::string alphabet = "0011225.....:ax";
  int valid = 0;
  for (int i = 0; i < 50000; ++i) {
    std::string text = i % 2 != 0 ? "" : "1.2";
    for (auto n = random() % 14; n != 0; --n) text += alphabet[random() % alphabet.size()];
    unsigned long expected = 0;
    const bool ok = ModelQuad(text, &expected);
    bool error = ok;
    const unsigned long ip = InetAddress2::StringToIP(text.c_str(), &error);
    ASSERT_EQ(!ok, error) << text;
    ASSERT_EQ(expected, ip) << text;
    valid += ok ? 1 : 0;
  }
  EXPECT_GT(valid, 250);
  bool error = false;
  EXPECT_EQ(0u, InetAddress2::StringToIP(nullptr, &error));
  EXPECT_TRUE(error);
  EXPECT_EQ(0x01020304u, InetAddress2::StringToIP("1a.2.3.4", nullptr));
  EXPECT_EQ(0u, InetAddress2::StringToIP("4294967297.2.3.4", nullptr));
}

TEST(InetAddress2, SetsAddressAndPortFromTextOrStaysAsItWas) {
  CapturedLog log(false);
  const std::string longestLookup(79, 'a');  // no label may be that long: fails without asking the network
  const struct {
    std::string text;
    unsigned short defaultPort;
    const char* result;  // null: refused
    bool isLookedUp;
  } rows[] = {
      {"10.0.0.1", 514, "10.0.0.1:514", false},
      {"255.255.255.255:65535", 1, "255.255.255.255:65535", false},
      {"10.0.0.1:514 and more", 1, "10.0.0.1:514", false},
      {"10.0.0.1: 7:8", 1, "10.0.0.1:7", false},
      {"10.0.0.1:65537", 2, "10.0.0.1:1", false},
      {"10.0.0.1:0", 514, nullptr, false},
      {"10.0.0.1:65536", 514, nullptr, false},
      {"10.0.0.1:", 514, nullptr, false},
      {"10.0.0.1", 0, nullptr, false},
      {"localhost:11001", 0, "127.0.0.1:11001", false},
      {"localhost", 514, "127.0.0.1:514", false},
      {"", 514, nullptr, false},
      {":514", 514, nullptr, false},
      {std::string(80, 'a'), 514, nullptr, false},
      {std::string(75, '0') + "1.2.3.4", 514, "1.2.3.4:514", false},
      {longestLookup + ":9", 514, nullptr, true},
  };
  for (const auto& row : rows) {
    InetAddress2 address(0x7F000002, 99);
    EXPECT_EQ(row.result != nullptr, address.SetAddressString(row.text.c_str(), row.defaultPort)) << row.text;
    EXPECT_EQ(row.result != nullptr ? row.result : "127.0.0.2:99", Text(address)) << row.text;
    const auto lines = log.Take();
    ASSERT_EQ(row.isLookedUp ? 1u : 0u, lines.size()) << row.text;
    if (!row.isLookedUp) continue;
    EXPECT_EQ(0u, lines[0].find("2:Cannot resolve host name '" + longestLookup + "', error code -"));
  }
  InetAddress2 address(1, 1);
  EXPECT_FALSE(address.SetAddressString(nullptr, 514));
}

TEST(InetAddress2, HoldsASocketAddressInNetworkOrder) {
  InetAddress2 address(static_cast<long>(0xC0A80114), 0x1F90);
  const auto* bytes = reinterpret_cast<const unsigned char*>(&address.Native().sin_addr);
  EXPECT_EQ(192, bytes[0]);
  EXPECT_EQ(20, bytes[3]);
  EXPECT_EQ(AF_INET, address.Native().sin_family);
  EXPECT_EQ(0x1F, *reinterpret_cast<const unsigned char*>(&address.Native().sin_port));
  address.SetAddress(-1, 1);  // what a 32-bit machine's long holds for 255.255.255.255
  EXPECT_EQ(0xFFFFFFFFu, address.GetIP());
  address.SetListenAddress(514);
  EXPECT_EQ("0.0.0.0:514", Text(address));
}

TEST(InetAddress2, WritesNumbersAndAddresses) {
  char text[InetAddress2::kMaxText];
  EXPECT_EQ(text + 1, NumToString(text, 0));
  EXPECT_STREQ("0", text);
  EXPECT_EQ(text + 10, NumToString(text, 4294967295u));
  EXPECT_STREQ("4294967295", text);
  EXPECT_EQ(text + 21, InetAddress2::IPToString(text, 0xFFFFFFFF, 65535));
  EXPECT_STREQ("255.255.255.255:65535", text);
  EXPECT_EQ(text + 8, InetAddress2::IPToString(text, 0x0A000001, 0));
  EXPECT_STREQ("10.0.0.1", text);
  EXPECT_EQ(text + 8, InetAddress2(0x0A000001, 514).GetIPString(text));
  EXPECT_STREQ("10.0.0.1", text);
}
