// Foundation layer: what is done to characters in more than one place.
#pragma once

#include <string.h>
#include <sys/uio.h>

#include <cstddef>
#include <cstdint>

namespace Velk {

// Works on bare characters; lengths are in bytes, nothing here needs or writes a NUL unless it says so.
class TextOps {
 public:
  // Longest text that a string holds: positions are ints.
  static constexpr unsigned kMaxLength = 0x7FFFFFFF;
  // Most digits of a 64-bit number.
  static constexpr unsigned kMaxDigits = 20;

  // Null counts as empty.
  static const char* OrEmpty(const char* text) { return text != nullptr ? text : ""; }
  static bool IsEmpty(const char* text) { return text == nullptr || *text == '\0'; }

  // A copy to be freed with delete[]; null for null.
  static char* Strdup(const char* text);

  // For writev(2), whose type has no const. Without a length null counts as empty.
  static iovec Piece(const char* text, size_t length) { return {const_cast<char*>(text), length}; }
  static iovec Piece(const char* text) { return Piece(OrEmpty(text), strlen(OrEmpty(text))); }

  // The nearest place at or before at where a UTF-8 character starts, or at itself in text that is not UTF-8.
  // text[at] must be there.
  static size_t CharacterStart(const char* text, size_t at);
  // Whether c is a byte of a UTF-8 character, but not its first.
  static bool IsContinuation(char c) { return (c & 0xC0) == 0x80; }

  // Writes value in decimal without a NUL and returns how many digits it took; out holds kMaxDigits.
  static unsigned PutNum(char* out, unsigned long long value);

  // Reads decimal digits, modulo 2^64. Returns the first character that is none.
  static const char* GetNum(const char* text, uint64_t* value);

  // Ends the process, as a failed allocation does, when length is beyond kMaxLength.
  static void CheckLength(unsigned long length);
};

}  // namespace Velk
