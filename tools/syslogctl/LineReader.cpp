#include "tools/syslogctl/LineReader.h"

#include <errno.h>
#include <string.h>
#include <unistd.h>

namespace Ctl {

bool LineReader::Next(const char** text, size_t* length) {
  Cut cut;
  if (!CutLine(m_buffer + m_begin, m_end - m_begin, m_ended, m_room, &cut)) return false;
  *text = m_buffer + m_begin;
  *length = cut.length;
  m_begin += cut.consumed;
  return true;
}

bool LineReader::Read() {
  // What Next() left is shorter than a piece, so there is always room to read into.
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
