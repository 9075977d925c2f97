#include "common/HashMD5.h"

#include "tests/unit/Test.h"

namespace {

std::string Md5(const std::string& text, size_t pieceSize) {
  static Velk::HashMD5 hash;
  hash.Reset();
  for (size_t at = 0; at < text.size(); at += pieceSize)
    hash.AddBinary(text.data() + at, std::min(pieceSize, text.size() - at));
  char digits[33];
  hash.GetAsString(digits);
  return digits;
}

}  // namespace

TEST(HashMD5, DoesNotDependOnHowTheDataIsCut) {
  // At 56 to 63 bytes, modulo 64, the padding needs another block.
  std::string all;
  for (size_t length = 0; length <= 130; ++length) {
    std::string text(length, '\0');
    for (size_t i = 0; i < length; ++i) text[i] = static_cast<char>(i * 37);
    const std::string whole = Md5(text, 1000);
    all += whole;
    for (const size_t piece : {1, 3, 55, 56, 63, 64, 65})
      EXPECT_EQ(whole, Md5(text, piece)) << length << " bytes by " << piece;
  }
  // Computed with another implementation.
  EXPECT_EQ("7165a8097d49cb02211f624972ba1738", Md5(all, 1000));
}
