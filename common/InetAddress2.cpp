#include "common/InetAddress2.h"

#include <arpa/inet.h>
#include <errno.h>
#include <netdb.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>

#include <cstdint>

#include "common/LogPrinter.h"
#include "common/TextOps.h"

char* NumToString(char* p, unsigned int n) {
  p += Velk::TextOps::PutNum(p, n);
  *p = '\0';
  return p;
}

InetAddress2::InetAddress2(long ip, unsigned short port) : m_address() {
  m_address.sin_family = AF_INET;
  SetAddress(ip, port);
}

void InetAddress2::SetAddress(long ip, unsigned short port) {
  m_address.sin_port = htons(port);
  m_address.sin_addr.s_addr = htonl(static_cast<uint32_t>(ip));
}

void InetAddress2::SetListenAddress(unsigned short port) {
  SetAddress(INADDR_ANY, port);
}

unsigned long InetAddress2::GetIP() const {
  return ntohl(m_address.sin_addr.s_addr);
}

unsigned short InetAddress2::GetPort() const {
  return ntohs(m_address.sin_port);
}

namespace {

// Lenient on purpose: ignores characters other than digits and dots, since people write addresses with stray
// blanks and letters.
bool ParseQuad(const char* text, uint32_t* ip) {
  uint32_t address = 0;
  unsigned octet = 0;
  bool hasDigit = false;
  int dots = 0;
  for (; *text != '\0' && *text != ':'; ++text) {
    if (*text >= '0' && *text <= '9') {
      octet = octet * 10 + static_cast<unsigned>(*text - '0');
      if (octet > 255) return false;
      hasDigit = true;
    } else if (*text == '.') {
      if (!hasDigit || ++dots > 3) return false;
      address = address << 8 | octet;
      octet = 0;
      hasDigit = false;
    }
  }
  if (dots != 3 || !hasDigit) return false;
  *ip = address << 8 | octet;
  return true;
}

}  // namespace

unsigned long InetAddress2::StringToIP(const char* text, bool* error) {
  uint32_t ip = 0;
  const bool parsed = text != nullptr && ParseQuad(text, &ip);
  if (error != nullptr) *error = !parsed;
  return ip;
}

namespace {

// If the first lookup runs out of memory, glibc ends the program (2.36: nss_database.c). This check prevents
// that, unless another thread takes the memory first. A lookup takes about 10 KiB, and a name server's answer
// up to 64 KiB more.
bool HasMemoryForLookUp() {
  constexpr size_t kBytes = 100000;
  void* volatile const block = malloc(kBytes);  // volatile: otherwise the compiler removes it
  free(block);
  return block != nullptr;
}

}  // namespace

int InetAddress2::LookUp(const char* host, in_addr* address) const {
  addrinfo hints{};
  hints.ai_family = AF_INET;
  hints.ai_socktype = SOCK_STREAM;  // otherwise there is a result per socket type
  addrinfo* results = nullptr;
  const int code = HasMemoryForLookUp() ? getaddrinfo(host, nullptr, &hints, &results) : EAI_MEMORY;
  if (code != 0) return code;
  sockaddr_in first{};
  memcpy(&first, results->ai_addr, sizeof first);
  freeaddrinfo(results);
  *address = first.sin_addr;
  return 0;
}

bool InetAddress2::HasValidPort(const char* text) {
  const char* const colon = strchr(text, ':');
  if (colon == nullptr) return true;
  const size_t digits = strspn(colon + 1, "0123456789");
  const unsigned long port = strtoul(colon + 1, nullptr, 10);
  return digits != 0 && colon[1 + digits] == '\0' && port != 0 && port <= UINT16_MAX;
}

bool InetAddress2::SetAddressString(const char* text, unsigned short defaultPort) {
  if (text == nullptr) return false;
  const size_t hostLength = strcspn(text, ":");
  unsigned short port = defaultPort;
  if (text[hostLength] == ':') port = static_cast<unsigned short>(strtol(text + hostLength + 1, nullptr, 10));
  if (port == 0) return false;

  const unsigned long ip = StringToIP(text, nullptr);  // 0: a host name, or 0.0.0.0; the resolver takes both
  if (ip != 0) {
    SetAddress(static_cast<long>(ip), port);
    return true;
  }

  if (hostLength == 0 || hostLength > kMaxHost) return false;
  char host[kMaxHost + 1];
  memcpy(host, text, hostLength);
  host[hostLength] = '\0';
  if (strcmp(host, "localhost") == 0) {  // a device may have no resolver
    SetAddress(INADDR_LOOPBACK, port);
    return true;
  }
  in_addr resolved{};
  const int code = LookUp(host, &resolved);
  if (code != 0) {
    LogPrinter::Instance()->Log(Warning, nullptr, "Cannot resolve host name '%s', error code %d!\n", host,
                                code);
    if (code == EAI_MEMORY) errno = ENOMEM;
    return false;
  }
  m_address.sin_addr = resolved;
  m_address.sin_port = htons(port);
  return true;
}

char* InetAddress2::IPToString(char* buf, unsigned long ip, unsigned short port) {
  for (int shift = 24; shift >= 0; shift -= 8) {
    buf = NumToString(buf, static_cast<unsigned>(ip >> shift & 0xFF));
    if (shift != 0) *buf++ = '.';
  }
  if (port == 0) return buf;
  *buf++ = ':';
  return NumToString(buf, port);
}

char* InetAddress2::GetIPString(char* buf) const {
  return IPToString(buf, GetIP(), 0);
}

bool InetAddress2::Test() {
  static const struct {
    const char* text;
    unsigned long ip;
    bool error;
    const char* label;
  } checks[] = {
      {"1.2.3.4", 0x01020304, false, "plain quad"},
      {"1.2.3.4:", 0x01020304, false, "quad with colon"},
      {"1.00002.3.4:", 0x01020304, false, "leading zeros"},
      {"1.2.3.4.", 0, true, "fourth dot"},
      {"1.2.3.", 0, true, "empty last octet"},
      {".1.2.3", 0, true, "empty first octet"},
      {"256.2.3.4", 0, true, "first octet above 255"},
      {"1.2000.3.4", 0, true, "second octet above 255"},
      {"1..3.4", 0, true, "empty second octet"},
  };
  int number = 0;
  for (const auto& check : checks) {
    ++number;
    bool error = !check.error;
    const unsigned long ip = StringToIP(check.text, &error);
    if (ip == check.ip && error == check.error) continue;
    printf("common/InetAddress2(%d): Test %s failed!\n", number, check.label);
    return false;
  }
  return true;
}
