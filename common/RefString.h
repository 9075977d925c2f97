// Foundation layer: the shared string of the dispatch framework.
#pragma once

#include <cstdint>

#include "common/StringOps.h"

namespace Velk {

// Copy-on-write byte string, one pointer wide, always NUL-terminated. Copies share one counted block and may
// live in different threads; one object is for one thread at a time. Null C strings count as absent.
// Lengths and capacities are in bytes without the NUL. Running out of memory ends the process.
class RefString : public StringOps<RefString> {
 public:
  // Comes before the characters in memory, which are a NUL more than the capacity. A block of capacity 0 is
  // neither counted nor freed.
  struct RefStringData {
    long m_refCount;
    uint32_t m_length;
    uint32_t m_capacity;
    uint32_t m_growBy;  // rounding step of the capacity, 0: none

    // An empty block, counted once, with room for len characters; with a growBy the room is rounded up to
    // a multiple of growBy beyond len + 1, a whole step more when len + 1 is one already.
    static RefStringData* CreateInstance(unsigned long len, unsigned long growBy);
    // Returns the characters of a new block, counted once, with a copy of the text and room for minLen
    // characters or the text, rounded by this block's step.
    char* Clone(unsigned long minLen);
    void AddRef();
    // Frees the block when this was the last reference.
    void RelRef();
    char* Text() { return reinterpret_cast<char*>(this + 1); }
  };

  RefString() : StringOps(s_emptyData.m_text) {}
  // An empty string with room for len characters.
  RefString(unsigned long len, unsigned long growBy);
  // Both copy the text; n is its length, 0 for none. A null s with an n gives an empty string with room for
  // n.
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
  // Keeps the buffer when it is not shared.
  void Empty();

  // Private characters, the old text included, with room for n of them and a NUL. In place only when the
  // text is at least n long. ReleaseBuffer() must follow before any other call.
  char* GetBuffer(unsigned long n);
  // Tells the length that was written, at most the capacity; negative: up to the first NUL within the
  // length before.
  void ReleaseBuffer(int n);

  // n: how many bytes of s, 0 for all up to its NUL. s may lie within this string.
  RefString& Append(const char* s, unsigned n = 0);
  RefString& Append(char c);
  RefString& Append(const RefString& s);

  // A null or empty text equals only a null or empty one and sorts before all others; the order is that of
  // unsigned bytes.
  bool operator==(const char* s) const;
  bool operator==(const RefString& s) const { return *this == s.m_text; }
  bool EqNoCase(const char* s) const;
  bool EqNoCase(const RefString& s) const { return EqNoCase(s.m_text); }
  bool operator<(const char* s) const;
  bool operator<(const RefString& s) const { return *this < s.m_text; }
  bool operator>(const char* s) const;
  bool operator>(const RefString& s) const { return *this > s.m_text; }

  // 32-bit hash of the text, the same on every machine.
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
