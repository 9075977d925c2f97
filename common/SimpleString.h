// Foundation layer: the growable string of the log and the transport.
#pragma once

#include <cstddef>
#include <cstdint>

#include "common/StringOps.h"

namespace Velk {

// Byte string with one owner, one pointer wide, always NUL-terminated. One thread at a time; only the block
// that empty strings share is touched by several threads, and it never changes but for its growth step.
// Null C strings count as absent. Lengths and capacities are in bytes without the NUL. A string that grows
// adds whole growth steps to its capacity. Running out of memory ends the process.
class SimpleString : public StringOps<SimpleString> {
 public:
  // Comes before the characters in memory.
  struct StringData {
    uint32_t m_length;
    uint32_t m_capacity;
    uint32_t m_growBy;  // growth step, 0: kDefaultGrowBy
    char m_text[4];     // the first of capacity + 1 characters; the rest of the four is slack

    static StringData* Create(unsigned capacity);
    // Null is allowed.
    static void Destroy(StringData* data);
  };

  static constexpr unsigned kDefaultGrowBy = 32;

  SimpleString();
  // Both copy the text; n is its length, 0 for none.
  SimpleString(const char* s);
  SimpleString(const char* s, unsigned n);
  // An empty string with room for capacity characters.
  SimpleString(unsigned capacity, unsigned growBy);
  // The copy inherits the growth step.
  SimpleString(const SimpleString& other);
  ~SimpleString();
  SimpleString& operator=(const SimpleString& other) {
    if (this != &other) Set(other);
    return *this;
  }

  // Keeps the buffer.
  void Empty();
  // Meant to be called once, right after construction: on an empty string it takes a new block and gives up
  // the old one.
  void SetGrowBy(unsigned n);
  // Makes room for n more characters than the capacity, in any case in a new block.
  void GrowStringBy(unsigned n);

  SimpleString& Append(char c);
  // Appends the one character c; n is how many more the caller expects to append.
  SimpleString& Append2(char c, unsigned n);
  // n: how many bytes of s, 0 for all up to its NUL. s may lie within this string.
  SimpleString& Append(const char* s, unsigned n = 0);
  SimpleString& Append(const SimpleString& s);

  // Replace the text; the buffer is kept. A string set from its own characters stays as it is.
  SimpleString& Set(char c);
  SimpleString& Set(const char* s, unsigned n = 0);
  SimpleString& Set(const SimpleString& s);

  // Room for n characters and a NUL to be written in place, the old text included. ReleaseBuffer() must
  // follow before any other call.
  char* GetBuffer(unsigned n);
  // Tells the length that was written, at most the capacity; negative: up to the first NUL.
  void ReleaseBuffer(int n);

  // A null C string equals nothing.
  bool operator==(const char* s) const;
  bool operator==(const SimpleString& s) const { return *this == s.m_text; }
  bool operator!=(const char* s) const { return !(*this == s); }
  bool operator!=(const SimpleString& s) const { return !(*this == s.m_text); }
  bool EqNoCase(const char* s) const;
  bool EqNoCase(const SimpleString& s) const { return EqNoCase(s.m_text); }
  // By unsigned bytes; empty strings come first.
  bool operator<(const SimpleString& s) const;
  bool operator>(const SimpleString& s) const { return s < *this; }

  // Compares without regard to case, only as far as the shorter text goes: 0 when one is a prefix of the
  // other, else the difference of the first upper-cased bytes that differ. Null sorts first.
  static int cmpni(const char* a, const char* b);

 private:
  friend StringOps<SimpleString>;

  StringData* Data() const { return reinterpret_cast<StringData*>(m_text - offsetof(StringData, m_text)); }
  bool IsEmptyBlock() const { return Data() == &m_empty; }
  void MakePrivate() {}  // only the empty block is shared, and has no text to change
  void TakeBlock(unsigned capacity, unsigned growBy);
  void Release(StringData* data);
  StringData* Grow(unsigned shortfall);
  void AppendBytes(const char* s, unsigned n);

  static StringData m_empty;
};

}  // namespace Velk
