// The decisions of a random test, made from random bytes or from a fuzzer's input.
#pragma once

#include "tests/unit/Test.h"

class Choices {
 public:
  Choices(const uint8_t* bytes, size_t count) : m_next(bytes), m_end(bytes + count) {}

  static Choices Random(unsigned seed, size_t count) {
    std::mt19937 random(seed);
    const auto bytes = std::make_shared<std::vector<uint8_t>>(count);
    for (uint8_t& byte : *bytes) byte = static_cast<uint8_t>(random());
    Choices choices(bytes->data(), count);
    choices.m_own = bytes;
    return choices;
  }

  bool AreLeft() const { return m_next != m_end; }

  // A number below limit; 0 if no bytes are left.
  unsigned Below(unsigned limit) {
    unsigned value = 0;
    for (uint64_t reach = 1; reach < limit && AreLeft(); reach *= 256) value = value * 256 + *m_next++;
    return value % limit;
  }

  // The next count bytes, or fewer if fewer are left.
  std::string Bytes(size_t count) {
    const size_t taken = std::min(count, static_cast<size_t>(m_end - m_next));
    m_next += taken;
    return std::string(m_next - taken, m_next);
  }

  std::string Text(const std::string& alphabet, unsigned longest) {
    std::string text(Below(longest + 1), ' ');
    for (char& c : text) c = alphabet[Below(static_cast<unsigned>(alphabet.size()))];
    return text;
  }

 private:
  const uint8_t* m_next;
  const uint8_t* m_end;
  std::shared_ptr<const std::vector<uint8_t>> m_own;
};
