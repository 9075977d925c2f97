// Compares the address parser with a simple one. The fake resolver knows the host names of even length.
#include <arpa/inet.h>
#include <netdb.h>

#include "tests/unit/CapturedLog.h"
#include "tests/unit/QuadModel.h"

namespace {

constexpr uint32_t kResolved = 0x0A010203;
constexpr unsigned long kMaxHostName = 79;

// Parses the text as the address parser should. False: invalid.
bool Parse(const std::string& text, unsigned short defaultPort, unsigned long* ip, unsigned short* port) {
  const size_t length = std::min(text.find(':'), text.size());
  const std::string host = text.substr(0, length);
  const bool hasPort = length < text.size();
  *port = hasPort ? static_cast<unsigned short>(atol(text.c_str() + length + 1)) : defaultPort;
  if (*port == 0) return false;
  if (ModelQuad(host, ip) && *ip != 0) return true;
  if (host.empty() || host.size() > kMaxHostName) return false;
  *ip = host == "localhost" ? INADDR_LOOPBACK : kResolved;
  return host == "localhost" || host.size() % 2 == 0;
}

class Address final : public InetAddress2 {
 public:
  Address() : InetAddress2(0x7F000002, 99) {}

 private:
  int LookUp(const char* host, in_addr* address) const override {
    if (strlen(host) % 2 != 0) return EAI_NONAME;
    *address = InetAddress2(kResolved, 1).Native().sin_addr;
    return 0;
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static CapturedLog log(false);
  const std::string text = std::string(data, data + size).c_str();
  CheckQuad(text);
  unsigned long ip = 0;
  unsigned short port = 0;
  Address address;
  const bool isGood = Parse(text, static_cast<unsigned short>(size), &ip, &port);
  EXPECT_EQ(isGood, address.SetAddressString(text.c_str(), static_cast<unsigned short>(size)));
  EXPECT_EQ(TextOf(isGood ? InetAddress2(static_cast<long>(ip), port) : Address()), TextOf(address));
  InetAddress2 again(0, 0);
  EXPECT_TRUE(again.SetAddressString(TextOf(address).c_str(), 1));
  EXPECT_EQ(TextOf(address), TextOf(again));
  log.Take();
  return 0;
}
