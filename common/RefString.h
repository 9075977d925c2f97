// Foundation layer: a reference-counted string, for the dispatch layer.
#pragma once

#include <cstdint>

#include "common/StringOps.h"

namespace Velk {

// Copy-on-write byte string, the size of a pointer, always NUL-terminated. Copies share one counted block.
// Threads may use different copies at once, but not the same object. Null C strings count as empty. Lengths
// and capacities are in bytes without the NUL. Running out of memory ends the process.
class RefString : public StringOps<RefString> {
 public:
  // Header of a block; m_capacity + 1 characters follow. Strings of capacity 0 share one block, which is
  // neither counted nor freed.
  struct RefStringData {
    long m_refCount;
    uint32_t m_length;
    uint32_t m_capacity;
    uint32_t m_growBy;  // step of m_capacity + 1; 0: no rounding

    // Returns an empty block with one reference and room for len characters. With growBy,
    // m_capacity + 1 is the smallest multiple of growBy that is larger than len + 1.
    static RefStringData* CreateInstance(unsigned long len, unsigned long growBy);
    // Copies the text to a new block with one reference and room for at least minLen characters, rounded by
    // m_growBy. Returns the new block's characters.
    char* Clone(unsigned long minLen);
    void AddRef();
    // Drops a reference and frees the block if it was the last.
    void RelRef();
    char* Text() { return reinterpret_cast<char*>(this + 1); }
  };

  RefString() : StringOps(s_emptyData.m_text) {}
  // An empty string with room for len characters.
  RefString(unsigned long len, unsigned long growBy);
  // Copy the text; n is its length, and 0 gives an empty string. A null s gives an empty one with room for n.
  RefString(const char* s);
  RefString(const char* s, unsigned n);
  // Shares the text.
  RefString(const RefString& other);
  ~RefString() { Data()->RelRef(); }
  RefString& operator=(const RefString& other) {
    if (this != &other) Set(other);
    return *this;
  }

  // Shares the other's text.
  RefString& Set(const RefString& other);
  // Keeps the buffer if it is not shared.
  void Empty();

  // Returns the text for writing, unshared, with room for n characters and a NUL. Allocates a new block if
  // the text is shorter than n, even if the capacity suffices. Call ReleaseBuffer() before any other
  // operation.
  char* GetBuffer(unsigned long n);
  // Sets the length, at most the capacity. Negative: up to the first NUL within the old length.
  void ReleaseBuffer(int n);

  // n: number of bytes; 0: up to the NUL. s may point into this string.
  RefString& Append(const char* s, unsigned n = 0);
  RefString& Append(char c);
  RefString& Append(const RefString& s);

  // Null equals the empty text. Ordered by unsigned bytes.
  bool operator==(const char* s) const;
  bool operator==(const RefString& s) const { return *this == s.m_text; }
  bool EqNoCase(const char* s) const;
  bool EqNoCase(const RefString& s) const { return EqNoCase(s.m_text); }
  bool operator<(const char* s) const;
  bool operator<(const RefString& s) const { return *this < s.m_text; }
  bool operator>(const char* s) const;
  bool operator>(const RefString& s) const { return *this > s.m_text; }

  // A 32-bit hash, the same on every machine.
  operator unsigned long() const;

 private:
  friend StringOps<RefString>;

  struct EmptyData {
    RefStringData m_header;
    char m_text[sizeof(long)];
  };

  RefStringData* Data() const { return reinterpret_cast<RefStringData*>(m_text) - 1; }
  bool IsEmptyBlock() const { return Data() == &s_emptyData.m_header; }
  bool IsUnshared() const;
  void MoveTo(char* text);
  void MakePrivate();
  void AppendBytes(const char* s, unsigned n);

  static EmptyData s_emptyData;
};

}  // namespace Velk
