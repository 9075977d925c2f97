// Compares the wildcard matcher with its model. Input: pattern, line feed, text. The match is case-sensitive
// if the text begins with an upper-case letter.

#include "tests/unit/WildcardModel.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  constexpr size_t kMaxBytes = 200;  // the model's time is cubic
  if (size > kMaxBytes) return 0;
  const std::string all(data, data + size);
  const size_t middle = all.find('\n');
  const std::string pattern = all.substr(0, middle).c_str();
  const std::string text = middle < size ? all.substr(middle + 1).c_str() : "";
  const bool isExact = text[0] >= 'A' && text[0] <= 'Z';
  CheckMatch(text, pattern, isExact);
  return 0;
}
