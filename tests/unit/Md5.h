// Digests as cookies are made of them.
#pragma once

#include "common/HashMD5.h"
#include "tests/unit/Test.h"

inline std::string Md5(const std::string& bytes) {
  Velk::HashMD5 md5;
  char digest[Velk::kMD5DigestLength];
  md5.AddBinary(bytes.data(), bytes.size());
  md5.GetDigest(reinterpret_cast<unsigned char*>(digest));
  return std::string(digest, sizeof digest);
}
