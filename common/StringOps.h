// Foundation layer: operations that SimpleString and RefString share.
#pragma once

#include <ctype.h>
#include <limits.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>

#include "common/TextOps.h"

namespace Velk {

// Base of a string class that holds one pointer to NUL-terminated characters. The derived class, String,
// manages the memory. Lengths and capacities are in bytes without the NUL. Case conversion is that
// of toupper(3) and tolower(3).
template <class String>
class StringOps {
 public:
  // Never null. Valid until the string changes or is destroyed.
  const char* Str() const { return m_text; }
  unsigned Length() const { return Self().Data()->m_length; }
  unsigned Capacity() const { return Self().Data()->m_capacity; }
  bool IsEmpty() const { return Length() == 0; }
  // i must be from 0 to Length(); not checked.
  char operator[](int i) const { return m_text[i]; }

  String& AppendNum(unsigned long v) {
    char digits[TextOps::kMaxDigits];
    return Self().Append(digits, TextOps::PutNum(digits, v));
  }

  // Replace the text, see printf(3). No argument may point into this string.
  __attribute__((format(printf, 2, 3))) void Format(const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    FormatV(fmt, args);
    va_end(args);
  }
  __attribute__((format(printf, 2, 0))) void FormatV(const char* fmt, va_list args) {
    fmt = TextOps::OrEmpty(fmt);
    va_list measure;
    va_copy(measure, args);
    const int needed = vsnprintf(nullptr, 0, fmt, measure);
    va_end(measure);
    Self().GetBuffer(needed > 0 ? static_cast<unsigned>(needed) : 0);
    if (Self().IsEmptyBlock()) return;  // the result is empty; the shared block must not be written
    EndText(vsnprintf(m_text, Capacity() + 1, fmt, args), Capacity());
  }

  // Index of the first or last c, or -1.
  int Find(char c) const { return IndexOf(strchr(m_text, c)); }
  int FindRev(char c) const { return IndexOf(strrchr(m_text, c)); }

  // A negative start counts as 0, a negative count gives an empty string, and the end is clamped to the text.
  String Mid(int start) const { return Mid(start, INT_MAX); }
  String Mid(int start, int count) const {
    const unsigned from = std::min(static_cast<unsigned>(std::max(start, 0)), Length());
    return String(m_text + from, std::min(static_cast<unsigned>(std::max(count, 0)), Length() - from));
  }
  String Left(int count) const { return Mid(0, count); }
  String Right(int count) const {
    const int length = static_cast<int>(Length());
    return Mid(count < length && count > 0 ? length - count : 0, count);
  }

  void MakeUpper() {
    Self().MakePrivate();
    for (char* c = m_text; c < End(); ++c) *c = static_cast<char>(toupper(static_cast<unsigned char>(*c)));
  }
  void MakeLower() {
    Self().MakePrivate();
    for (char* c = m_text; c < End(); ++c) *c = static_cast<char>(tolower(static_cast<unsigned char>(*c)));
  }
  void MakeReverse() {
    Self().MakePrivate();
    std::reverse(m_text, End());
  }

  // Trim space, tab, line feed and carriage return, but not vertical tab and form feed.
  void TrimRight() {
    unsigned length = Length();
    while (length > 0 && IsBlank(m_text[length - 1])) --length;
    if (length == Length()) return;
    Self().MakePrivate();
    SetLength(length);
  }
  void TrimLeft() {
    unsigned blanks = 0;
    while (IsBlank(m_text[blanks])) ++blanks;  // stops at the NUL
    if (blanks == 0) return;
    Self().MakePrivate();
    memmove(m_text, m_text + blanks, Length() - blanks);
    SetLength(Length() - blanks);
  }
  void Trim() {
    TrimRight();
    TrimLeft();
  }

 private:
  friend String;

  explicit StringOps(char* text) : m_text(text) {}

  // Never writes to the block that empty strings share.
  void SetLength(unsigned length) {
    if (Self().IsEmptyBlock()) return;
    Self().Data()->m_length = length;
    m_text[length] = '\0';
  }

  // Sets the length to n, at most the capacity. Negative: up to the first NUL within limit.
  void EndText(int n, unsigned limit) {
    const size_t length = n >= 0 ? static_cast<size_t>(n) : strnlen(m_text, limit);
    SetLength(static_cast<unsigned>(std::min<size_t>(length, Capacity())));
  }

  String& Self() { return static_cast<String&>(*this); }
  const String& Self() const { return static_cast<const String&>(*this); }
  char* End() const { return m_text + Length(); }
  int IndexOf(const char* found) const { return found != nullptr ? static_cast<int>(found - m_text) : -1; }
  static bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

  char* m_text;
};

}  // namespace Velk
