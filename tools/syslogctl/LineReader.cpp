#include "tools/syslogctl/LineReader.h"

#include <errno.h>
#include <string.h>
#include <unistd.h>

#include "common/TextOps.h"

namespace Ctl {

bool LineReader::Next(const char** text, size_t* length) {
  const char* const begin = m_buffer + m_begin;
  const size_t held = m_end - m_begin;
  const bool isLong = held > m_mostLength;
  const size_t looked = isLong ? m_mostLength + 1 : held;
  const auto* const lineFeed = static_cast<const char*>(memchr(begin, '\n', looked));
  if (lineFeed == nullptr && !isLong && (!m_ended || held == 0)) return false;

  *text = begin;
  if (lineFeed != nullptr) {
    *length = static_cast<size_t>(lineFeed - begin);
    m_begin += *length + 1;
    return true;
  }
  *length = isLong ? Velk::TextOps::CharacterStart(begin, m_mostLength) : held;
  m_begin += *length;
  return true;
}

bool LineReader::Read() {
  // Next() returns false with at most kMostLength bytes left, so there is always room.
  memmove(m_buffer, m_buffer + m_begin, m_end - m_begin);
  m_end -= m_begin;
  m_begin = 0;
  ssize_t count;
  do {
    count = read(m_fd, m_buffer + m_end, kBufferSize - m_end);
  } while (count < 0 && errno == EINTR);
  if (count < 0) return false;
  m_ended = count == 0;
  m_end += static_cast<size_t>(count);
  m_bytesRead += static_cast<unsigned long long>(count);
  return true;
}

}  // namespace Ctl
