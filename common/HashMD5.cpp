#include "common/HashMD5.h"

#include <string.h>

namespace Velk {
namespace {

constexpr unsigned kBlockSize = 64;
// Offset of the message length in the last block.
constexpr unsigned kLengthOffset = 56;

// RFC 1321, 3.4: the integer part of 4294967296 * abs(sin(i)), i from 1, in radians.
constexpr uint32_t kSines[64] = {
    0xd76aa478, 0xe8c7b756, 0x242070db, 0xc1bdceee, 0xf57c0faf, 0x4787c62a, 0xa8304613, 0xfd469501,
    0x698098d8, 0x8b44f7af, 0xffff5bb1, 0x895cd7be, 0x6b901122, 0xfd987193, 0xa679438e, 0x49b40821,
    0xf61e2562, 0xc040b340, 0x265e5a51, 0xe9b6c7aa, 0xd62f105d, 0x02441453, 0xd8a1e681, 0xe7d3fbc8,
    0x21e1cde6, 0xc33707d6, 0xf4d50d87, 0x455a14ed, 0xa9e3e905, 0xfcefa3f8, 0x676f02d9, 0x8d2a4c8a,
    0xfffa3942, 0x8771f681, 0x6d9d6122, 0xfde5380c, 0xa4beea44, 0x4bdecfa9, 0xf6bb4b60, 0xbebfbc70,
    0x289b7ec6, 0xeaa127fa, 0xd4ef3085, 0x04881d05, 0xd9d4d039, 0xe6db99e5, 0x1fa27cf8, 0xc4ac5665,
    0xf4292244, 0x432aff97, 0xab9423a7, 0xfc93a039, 0x655b59c3, 0x8f0ccc92, 0xffeff47d, 0x85845dd1,
    0x6fa87e4f, 0xfe2ce6e0, 0xa3014314, 0x4e0811a1, 0xf7537e82, 0xbd3af235, 0x2ad7d2bb, 0xeb86d391};

// One round of 16 steps: the shifts repeat every four steps; step i uses message word (i * stride + start) %
// 16.
struct Round {
  unsigned char shifts[4];
  unsigned char stride;
  unsigned char start;
};
constexpr Round kRounds[4] = {
    {{7, 12, 17, 22}, 1, 0}, {{5, 9, 14, 20}, 5, 1}, {{4, 11, 16, 23}, 3, 5}, {{6, 10, 15, 21}, 7, 0}};

uint32_t Mix(unsigned round, uint32_t x, uint32_t y, uint32_t z) {
  if (round == 0) return (x & y) | (~x & z);
  if (round == 1) return (x & z) | (y & ~z);
  if (round == 2) return x ^ y ^ z;
  return y ^ (x | ~z);
}

uint32_t RotateLeft(uint32_t x, unsigned bits) {
  return (x << bits) | (x >> (32 - bits));
}

uint32_t GetLittleEndian(const unsigned char* in) {
  return in[0] | static_cast<uint32_t>(in[1]) << 8 | static_cast<uint32_t>(in[2]) << 16 |
         static_cast<uint32_t>(in[3]) << 24;
}

void PutLittleEndian(unsigned char* out, uint32_t word) {
  for (unsigned i = 0; i < 4; ++i) out[i] = static_cast<unsigned char>(word >> (8 * i));
}

void Transform(uint32_t state[4], const unsigned char* block) {
  uint32_t words[16];
  for (size_t i = 0; i < 16; ++i) words[i] = GetLittleEndian(block + 4 * i);
  uint32_t a = state[0];
  uint32_t b = state[1];
  uint32_t c = state[2];
  uint32_t d = state[3];
  for (unsigned i = 0; i < 64; ++i) {
    const Round& round = kRounds[i / 16];
    const uint32_t word = words[(i * round.stride + round.start) % 16];
    const uint32_t sum = a + Mix(i / 16, b, c, d) + word + kSines[i];
    a = d;
    d = c;
    c = b;
    b += RotateLeft(sum, round.shifts[i % 4]);
  }
  state[0] += a;
  state[1] += b;
  state[2] += c;
  state[3] += d;
}

}  // namespace

void MD5Init(MD5_CTX* context) {
  *context = MD5_CTX{{0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476}, {0, 0}, {}};
}

void MD5Update(MD5_CTX* context, const unsigned char* data, unsigned long length) {
  unsigned long used = context->count[0] / 8 % kBlockSize;
  const uint32_t lowBits = static_cast<uint32_t>(length << 3);
  context->count[0] += lowBits;
  context->count[1] += static_cast<uint32_t>(length >> 29) + (context->count[0] < lowBits ? 1 : 0);
  while (length > 0) {
    const unsigned long room = kBlockSize - used;
    const unsigned long part = length < room ? length : room;
    memcpy(context->buffer + used, data, part);
    data += part;
    length -= part;
    used += part;
    if (used < kBlockSize) return;
    Transform(context->state, context->buffer);
    used = 0;
  }
}

void MD5Final(unsigned char* digest, MD5_CTX* context) {
  static const unsigned char kPadding[kBlockSize] = {0x80};
  unsigned char bits[8];
  PutLittleEndian(bits, context->count[0]);
  PutLittleEndian(bits + 4, context->count[1]);
  const unsigned used = context->count[0] / 8 % kBlockSize;
  MD5Update(context, kPadding, (used < kLengthOffset ? kLengthOffset : kLengthOffset + kBlockSize) - used);
  MD5Update(context, bits, sizeof(bits));
  for (size_t i = 0; i < 4; ++i) PutLittleEndian(digest + 4 * i, context->state[i]);
  // The buffer may still hold part of a password.
  memset(context, 0, sizeof(*context));
}

void HashMD5::AddString(const char* text) {
  if (text != nullptr) AddBinary(text, strlen(text));
}

void HashMD5::AddBinary(const void* data, unsigned long length) {
  MD5Update(&m_context, static_cast<const unsigned char*>(data), length);
}

void HashMD5::GetAsString(char* out) {
  static const char kDigits[] = "0123456789abcdef";
  unsigned char digest[kMD5DigestLength];
  GetDigest(digest);
  for (const unsigned char byte : digest) {
    *out++ = kDigits[byte >> 4];
    *out++ = kDigits[byte & 15];
  }
  *out = '\0';
}

}  // namespace Velk
