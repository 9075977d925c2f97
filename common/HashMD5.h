// Foundation layer: MD5 digests, RFC 1321.
#pragma once

#include <cstdint>

namespace Velk {

// State of a digest. Works with any byte order and alignment.
struct MD5_CTX {
  uint32_t state[4];
  uint32_t count[2];  // bits so far, low word first
  unsigned char buffer[64];
};

constexpr unsigned kMD5DigestLength = 16;

void MD5Init(MD5_CTX* context);
// length in bytes; data may be null when it is 0.
void MD5Update(MD5_CTX* context, const unsigned char* data, unsigned long length);
// Writes the digest's 16 bytes and wipes the context. Call MD5Init() before using it again.
void MD5Final(unsigned char* digest, MD5_CTX* context);

// MD5 as a class. One thread at a time. Both Get operations end the digest; call Reset() to start
// another.
class HashMD5 {
 public:
  HashMD5() { Reset(); }
  virtual ~HashMD5() = default;

  void Reset() { MD5Init(&m_context); }
  // Adds the text without its NUL; null adds nothing.
  void AddString(const char* text);
  // length in bytes.
  void AddBinary(const void* data, unsigned long length);
  // Writes 16 bytes.
  void GetDigest(unsigned char* out) { MD5Final(out, &m_context); }
  // Writes 32 lower-case hexadecimal digits and a NUL.
  void GetAsString(char* out);

 private:
  MD5_CTX m_context;
};

}  // namespace Velk
