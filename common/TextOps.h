// Foundation layer: helpers for text.
#pragma once

#include <string.h>
#include <sys/uio.h>

#include <cstddef>
#include <cstdint>

namespace Velk {

// Lengths are in bytes. Any thread may call.
class TextOps {
 public:
  // Longest string: positions are ints.
  static constexpr unsigned kMaxLength = 0x7FFFFFFF;
  // Digits of the largest 64-bit number.
  static constexpr unsigned kMaxDigits = 20;

  // Null counts as empty.
  static const char* OrEmpty(const char* text) { return text != nullptr ? text : ""; }
  static bool IsEmpty(const char* text) { return text == nullptr || *text == '\0'; }

  // Returns a copy, to be freed with delete[]; null for null.
  static char* Strdup(const char* text);

  // Returns text as an iovec, whose pointer is to non-const. Without length: up to the NUL; null counts as
  // empty.
  static iovec Piece(const char* text, size_t length) { return {const_cast<char*>(text), length}; }
  static iovec Piece(const char* text) { return Piece(OrEmpty(text), strlen(OrEmpty(text))); }

  // Returns where to cut text: at the start of the UTF-8 character that contains text[at]. Returns `at` if
  // none of the three bytes before it is that start, or if the start is 0: a cut at 0 would leave nothing.
  // Reads text[at].
  static size_t CharacterStart(const char* text, size_t at);
  // Whether c is a byte of a UTF-8 character, but not its first.
  static bool IsContinuation(char c) { return (c & 0xC0) == 0x80; }

  // Writes value in decimal, without a NUL, and returns the number of digits. out has room for kMaxDigits.
  static unsigned PutNum(char* out, unsigned long long value);

  // Reads decimal digits, modulo 2^64. Returns the position after them.
  static const char* GetNum(const char* text, uint64_t* value);

  // Ends the process, like a failed allocation, if length exceeds kMaxLength.
  static void CheckLength(unsigned long length);
};

}  // namespace Velk
