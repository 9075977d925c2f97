#include "client/HeldLines.h"

#include <stdlib.h>
#include <string.h>

namespace Velk {

bool HeldLines::Open(unsigned lines) {
  constexpr uint32_t kFewest = 16;
  constexpr uint32_t kMost = 1U << 20;
  Close();
  uint32_t count = kFewest;
  while (count < lines && count < kMost) count *= 2;
  m_lines = static_cast<Line*>(malloc(count * (sizeof(Line) + kMeanLength)));
  if (m_lines == nullptr) return false;
  m_bytes = reinterpret_cast<char*>(m_lines + count);
  m_mask = count - 1;
  m_size = count * kMeanLength;
  return true;
}

void HeldLines::Close() {
  free(m_lines);
  m_lines = nullptr;
  m_size = m_first = m_end = 0;
}

// A text is never split: it goes after the newest one, or to the start if the end has no room.
bool HeldLines::FindPlace(uint32_t size, uint32_t* offset) const {
  *offset = 0;
  if (IsEmpty()) return size <= m_size;
  const uint32_t oldest = At(m_first).offset;
  const Line& newest = At(m_end - 1);
  const uint32_t next = newest.offset + newest.length + 1;
  if (newest.offset >= oldest && size > m_size - next) return size <= oldest;
  *offset = next;
  return newest.offset >= oldest || size <= oldest - next;
}

bool HeldLines::Append(const char* text, unsigned length) {
  uint32_t offset;
  if (m_end - m_first > m_mask || !FindPlace(length + 1, &offset)) return false;
  memcpy(m_bytes + offset, text, length);
  m_bytes[offset + length] = '\0';
  m_lines[m_end++ & m_mask] = {offset, length, 0};
  return true;
}

}  // namespace Velk
