#include "common/SimpleString.h"

#include <ctype.h>
#include <string.h>
#include <strings.h>

#include "common/TextOps.h"

namespace Velk {
namespace {

unsigned LengthOf(const char* s, unsigned n) {
  return n != 0 ? n : static_cast<unsigned>(strlen(s));
}

int UpperByte(char c) {
  return toupper(static_cast<unsigned char>(c));
}

}  // namespace

// Never freed. Only the growth step changes: the copy constructor sets it.
SimpleString::StringData SimpleString::m_empty = {0, 0, 0, {0}};

SimpleString::StringData* SimpleString::StringData::Create(unsigned capacity) {
  TextOps::CheckLength(capacity);
  char* block = new char[sizeof(StringData) + capacity];
  StringData* data = reinterpret_cast<StringData*>(block);
  data->m_length = 0;
  data->m_capacity = capacity;
  data->m_growBy = 0;
  data->m_text[0] = '\0';
  return data;
}

void SimpleString::StringData::Destroy(StringData* data) {
  delete[] reinterpret_cast<char*>(data);
}

SimpleString::SimpleString() : SimpleString(0U, kDefaultGrowBy) {}

SimpleString::SimpleString(const char* s) : StringOps(m_empty.m_text) {
  if (s == nullptr) return;
  const unsigned length = LengthOf(s, 0);
  TakeBlock(length, kDefaultGrowBy);
  AppendBytes(s, length);
}

SimpleString::SimpleString(const char* s, unsigned n) : StringOps(m_empty.m_text) {
  if (s == nullptr || n == 0) return;
  TakeBlock(n, kDefaultGrowBy);
  AppendBytes(s, n);
}

SimpleString::SimpleString(unsigned capacity, unsigned growBy) : StringOps(nullptr) {
  TakeBlock(capacity, growBy);
}

SimpleString::SimpleString(const SimpleString& other) : StringOps(m_empty.m_text) {
  // Append() takes the growth step from the shared block. Another thread may change it in between, but any
  // step will do.
  const uint32_t growBy = __atomic_load_n(&other.Data()->m_growBy, __ATOMIC_RELAXED);
  __atomic_store_n(&m_empty.m_growBy, growBy, __ATOMIC_RELAXED);
  Append(other);
}

SimpleString::~SimpleString() {
  Release(Data());
}

void SimpleString::Empty() {
  if (!IsEmpty()) SetLength(0);
}

void SimpleString::SetGrowBy(unsigned n) {
  if (!IsEmpty()) {
    Data()->m_growBy = n;
    return;
  }
  // Does not free the old block, so that pointers into it stay valid.
  TakeBlock(0, n);
}

void SimpleString::GrowStringBy(unsigned n) {
  Release(Grow(n));
}

SimpleString& SimpleString::Append(char c) {
  AppendBytes(&c, 1);
  return *this;
}

SimpleString& SimpleString::Append2(char c, unsigned n) {
  // n 0 would leave no room for c.
  if (Length() >= Capacity()) Release(Grow(n != 0 ? n : 1));
  return Append(c);
}

SimpleString& SimpleString::Append(const char* s, unsigned n) {
  if (!TextOps::IsEmpty(s)) AppendBytes(s, LengthOf(s, n));
  return *this;
}

SimpleString& SimpleString::Append(const SimpleString& s) {
  if (!s.IsEmpty() && s.m_text[0] != '\0') AppendBytes(s.m_text, s.Length());
  return *this;
}

SimpleString& SimpleString::Set(char c) {
  Empty();
  return Append(c);
}

SimpleString& SimpleString::Set(const char* s, unsigned n) {
  if (s == m_text) return *this;
  Empty();
  return Append(s, n);
}

SimpleString& SimpleString::Set(const SimpleString& s) {
  if (s.m_text == m_text) return *this;
  Empty();
  return Append(s);
}

char* SimpleString::GetBuffer(unsigned n) {
  if (Capacity() <= n) Release(Grow(n - Capacity()));
  return m_text;
}

void SimpleString::ReleaseBuffer(int n) {
  EndText(n, Capacity());
}

bool SimpleString::operator==(const char* s) const {
  if (s == m_text) return true;
  return s != nullptr && strcmp(m_text, s) == 0;
}

bool SimpleString::EqNoCase(const char* s) const {
  if (s == m_text) return true;
  return s != nullptr && strcasecmp(m_text, s) == 0;
}

bool SimpleString::operator<(const SimpleString& s) const {
  if (s.m_text == m_text) return false;
  if (IsEmpty() || s.IsEmpty()) return !s.IsEmpty();
  return strcmp(m_text, s.m_text) < 0;
}

int SimpleString::cmpni(const char* a, const char* b) {
  if (a == b) return 0;
  if (a == nullptr) return -1;
  if (b == nullptr) return 1;
  for (; *a != '\0' && *b != '\0'; ++a, ++b) {
    const int difference = UpperByte(*a) - UpperByte(*b);
    if (difference != 0) return difference;
  }
  return 0;
}

void SimpleString::Release(StringData* data) {
  if (data != &m_empty) StringData::Destroy(data);
}

// Switches to a new empty block without freeing the old one.
void SimpleString::TakeBlock(unsigned capacity, unsigned growBy) {
  StringData* data = StringData::Create(capacity);
  data->m_growBy = growBy;
  m_text = data->m_text;
}

// Moves the text to a new block, larger by shortfall rounded up to whole growth steps. Returns the old block,
// which the caller must release.
SimpleString::StringData* SimpleString::Grow(unsigned shortfall) {
  StringData* old = Data();
  const uint32_t growBy = __atomic_load_n(&old->m_growBy, __ATOMIC_RELAXED);
  const uint32_t step = growBy != 0 ? growBy : kDefaultGrowBy;
  // GetBuffer() may pass 0. Then extra is 0 or less than a step, which does no harm.
  const uint32_t extra = step * ((shortfall - 1) / step + 1);
  const uint32_t capacity = old->m_capacity + extra;
  const bool wrapped = extra < shortfall || capacity < extra;
  StringData* data = StringData::Create(wrapped ? UINT32_MAX : capacity);
  data->m_growBy = growBy;
  data->m_length = old->m_length;
  memcpy(data->m_text, old->m_text, old->m_length + 1);
  m_text = data->m_text;
  return old;
}

// s may point into this string's text, so the old block is kept until the bytes are copied.
void SimpleString::AppendBytes(const char* s, unsigned n) {
  const unsigned length = Length();
  const unsigned room = Capacity() - length;
  StringData* old = n > room ? Grow(n - room) : nullptr;
  memmove(m_text + length, s, n);
  SetLength(length + n);
  if (old != nullptr) Release(old);
}

}  // namespace Velk
