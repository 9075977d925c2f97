#include "common/RefString.h"

#include <string.h>
#include <strings.h>

#include "common/Interlocked.h"
#include "common/TextOps.h"

namespace Velk {

// Shared by all threads, so never written.
RefString::EmptyData RefString::s_emptyData = {{1, 0, 0, 0}, {0}};

RefString::RefStringData* RefString::RefStringData::CreateInstance(unsigned long len, unsigned long growBy) {
  if (len == 0 && growBy == 0) return &s_emptyData.m_header;
  TextOps::CheckLength(len);
  TextOps::CheckLength(growBy);
  unsigned long size = len + 1;
  // Rounds up to a larger multiple, never the same size, so that there is room to append.
  if (growBy != 0) size = (size / growBy + 1) * growBy;
  TextOps::CheckLength(size);
  RefStringData* data = reinterpret_cast<RefStringData*>(new char[sizeof(RefStringData) + size]);
  data->m_refCount = 1;
  data->m_length = 0;
  data->m_capacity = static_cast<uint32_t>(size - 1);
  data->m_growBy = static_cast<uint32_t>(growBy);
  data->Text()[0] = '\0';
  return data;
}

char* RefString::RefStringData::Clone(unsigned long minLen) {
  RefStringData* data = CreateInstance(minLen > m_length ? minLen : m_length, m_growBy);
  if (m_length == 0) return data->Text();
  data->m_length = m_length;
  memcpy(data->Text(), Text(), m_length + 1);
  return data->Text();
}

void RefString::RefStringData::AddRef() {
  if (this != &s_emptyData.m_header) InterlockedIncrement(&m_refCount);
}

void RefString::RefStringData::RelRef() {
  if (this == &s_emptyData.m_header || InterlockedDecrement(&m_refCount) > 0) return;
  delete[] reinterpret_cast<char*>(this);
}

RefString::RefString(unsigned long len, unsigned long growBy)
    : StringOps(RefStringData::CreateInstance(len, growBy)->Text()) {}

RefString::RefString(const char* s) : RefString(s, s != nullptr ? static_cast<unsigned>(strlen(s)) : 0) {}

RefString::RefString(const char* s, unsigned n) : RefString(static_cast<unsigned long>(n), 0UL) {
  if (s == nullptr || n == 0) return;
  memcpy(m_text, s, n);
  SetLength(n);
}

RefString::RefString(const RefString& other) : StringOps(other.m_text) {
  Data()->AddRef();
}

RefString& RefString::Set(const RefString& other) {
  if (other.m_text == m_text) return *this;
  other.Data()->AddRef();
  MoveTo(other.m_text);
  return *this;
}

void RefString::Empty() {
  if (IsUnshared()) {
    SetLength(0);
  } else {
    MoveTo(s_emptyData.m_header.Text());
  }
}

char* RefString::GetBuffer(unsigned long n) {
  if (!IsUnshared() || Length() < n) MoveTo(Data()->Clone(n));
  return m_text;
}

void RefString::ReleaseBuffer(int n) {
  EndText(n, Length());
}

RefString& RefString::Append(const char* s, unsigned n) {
  if (s != nullptr) AppendBytes(s, n != 0 ? n : static_cast<unsigned>(strlen(s)));
  return *this;
}

RefString& RefString::Append(char c) {
  AppendBytes(&c, 1);
  return *this;
}

RefString& RefString::Append(const RefString& s) {
  AppendBytes(s.m_text, s.Length());
  return *this;
}

bool RefString::operator==(const char* s) const {
  if (s == m_text) return true;
  if (IsEmpty() || TextOps::IsEmpty(s)) return IsEmpty() && TextOps::IsEmpty(s);
  return strcmp(m_text, s) == 0;
}

bool RefString::EqNoCase(const char* s) const {
  if (s == m_text) return true;
  if (IsEmpty() || TextOps::IsEmpty(s)) return IsEmpty() && TextOps::IsEmpty(s);
  return strcasecmp(m_text, s) == 0;
}

bool RefString::operator<(const char* s) const {
  if (s == m_text || TextOps::IsEmpty(s)) return false;
  return IsEmpty() || strcmp(m_text, s) < 0;
}

bool RefString::operator>(const char* s) const {
  if (s == m_text || IsEmpty()) return false;
  return TextOps::IsEmpty(s) || strcmp(m_text, s) > 0;
}

RefString::operator unsigned long() const {
  uint32_t hash = 0;
  for (unsigned i = 0; i < Length(); ++i) {
    const uint32_t mixed = (hash >> 24) ^ static_cast<unsigned char>(m_text[i]);
    // Always sign-extended, even where char is unsigned: the hash must not depend on the machine.
    const uint32_t extended = (mixed ^ 0x80) - 0x80;
    hash = (hash << 8) | extended;
  }
  return hash;
}

// Acquire: the last owner must not write before the others have finished reading.
bool RefString::IsUnshared() const {
  return __atomic_load_n(&Data()->m_refCount, __ATOMIC_ACQUIRE) < 2;
}

// Releases the current block and takes over the caller's reference to another.
void RefString::MoveTo(char* text) {
  Data()->RelRef();
  m_text = text;
}

void RefString::MakePrivate() {
  if (!IsUnshared()) MoveTo(Data()->Clone(0));
}

// s may point into this string's text, so the old block is kept until the bytes are copied.
void RefString::AppendBytes(const char* s, unsigned n) {
  if (n == 0) return;
  const unsigned length = Length();
  RefStringData* old = nullptr;
  if (!IsUnshared() || n > Capacity() - length) {
    TextOps::CheckLength(n);
    old = Data();
    m_text = old->Clone(static_cast<unsigned long>(length) + n);
  }
  memmove(m_text + length, s, n);
  SetLength(length + n);
  if (old != nullptr) old->RelRef();
}

}  // namespace Velk
