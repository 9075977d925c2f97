// Foundation layer: a growable string with one owner.
#pragma once

#include <cstddef>
#include <cstdint>

#include "common/StringOps.h"

namespace Velk {

// Byte string with one owner, always NUL-terminated. An object is as large as a pointer. One thread at a
// time. Some empty strings share one static block; only its growth step ever changes. Null C strings count as
// empty unless noted. Lengths and capacities are in bytes without the NUL. The capacity grows in whole growth
// steps. Running out of memory ends the process.
class SimpleString : public StringOps<SimpleString> {
 public:
  // Header of a block.
  struct StringData {
    uint32_t m_length;
    uint32_t m_capacity;
    uint32_t m_growBy;  // growth step; 0: kDefaultGrowBy
    char m_text[4];     // start of m_capacity + 1 characters

    static StringData* Create(unsigned capacity);
    // data may be null.
    static void Destroy(StringData* data);
  };

  static constexpr unsigned kDefaultGrowBy = 32;

  SimpleString();
  // Copy the text; n is its length, and 0 gives an empty string.
  SimpleString(const char* s);
  SimpleString(const char* s, unsigned n);
  // An empty string with room for capacity characters.
  SimpleString(unsigned capacity, unsigned growBy);
  // The copy inherits the growth step. Copying any string also sets the step of the static block, and so of
  // all strings on it.
  SimpleString(const SimpleString& other);
  ~SimpleString();
  SimpleString& operator=(const SimpleString& other) {
    if (this != &other) Set(other);
    return *this;
  }

  // Keeps the buffer.
  void Empty();
  // Sets the growth step. An empty string takes a new block for it and leaks the old one unless that was the
  // static block, so pass the step to the constructor instead.
  void SetGrowBy(unsigned n);
  // Adds n, rounded up to whole growth steps, to the capacity. Always takes a new block.
  void GrowStringBy(unsigned n);

  SimpleString& Append(char c);
  // Appends c once; n: how many characters to make room for if the string must grow.
  SimpleString& Append2(char c, unsigned n);
  // n: number of bytes; 0: up to the NUL. Adds nothing if s begins with a NUL. s may point into this string.
  SimpleString& Append(const char* s, unsigned n = 0);
  SimpleString& Append(const SimpleString& s);

  // Replace the text and keep the buffer. Do nothing if s is the string itself or its Str().
  SimpleString& Set(char c);
  SimpleString& Set(const char* s, unsigned n = 0);
  SimpleString& Set(const SimpleString& s);

  // Returns the text for writing, with room for n characters and a NUL. Call ReleaseBuffer() before any other
  // operation.
  char* GetBuffer(unsigned n);
  // Sets the length, at most the capacity. Negative: up to the first NUL.
  void ReleaseBuffer(int n);

  // A null C string is never equal.
  bool operator==(const char* s) const;
  bool operator==(const SimpleString& s) const { return *this == s.m_text; }
  bool operator!=(const char* s) const { return !(*this == s); }
  bool operator!=(const SimpleString& s) const { return !(*this == s.m_text); }
  bool EqNoCase(const char* s) const;
  bool EqNoCase(const SimpleString& s) const { return EqNoCase(s.m_text); }
  // Ordered by unsigned bytes.
  bool operator<(const SimpleString& s) const;
  bool operator>(const SimpleString& s) const { return s < *this; }

  // Compares in upper case, up to the length of the shorter text: 0 if one is a prefix of the other, else
  // the difference of the first pair of bytes that differ. Null sorts first.
  static int cmpni(const char* a, const char* b);

 private:
  friend StringOps<SimpleString>;

  StringData* Data() const { return reinterpret_cast<StringData*>(m_text - offsetof(StringData, m_text)); }
  bool IsEmptyBlock() const { return Data() == &m_empty; }
  void MakePrivate() {}  // only the empty block is shared, and it has no text
  void TakeBlock(unsigned capacity, unsigned growBy);
  void Release(StringData* data);
  StringData* Grow(unsigned shortfall);
  void AppendBytes(const char* s, unsigned n);

  static StringData m_empty;
};

}  // namespace Velk
