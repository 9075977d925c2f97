// Tool layer: standard input as lines that fit in a call.
#pragma once

#include "tools/syslogctl/Text.h"

namespace Ctl {

// Lines of a descriptor, in pieces of at most room bytes when quoted (CutLine). Holds 32 KiB whatever the
// length of a line.
class LineReader {
 public:
  LineReader(int fd, size_t room) : m_fd(fd), m_room(room) {}

  // The next piece that is there already; valid until the next Read(). False: Read() is needed, or AtEnd().
  bool Next(const char** text, size_t* length);

  // One read(2), which may block. False: it failed, errno says why.
  bool Read();

  // Everything was read and taken.
  bool AtEnd() const { return m_ended && m_begin == m_end; }

  unsigned long long BytesRead() const { return m_bytesRead; }

 private:
  static constexpr size_t kBufferSize = 32768;

  int m_fd;  // not owned
  size_t m_room;
  bool m_ended = false;
  size_t m_begin = 0;  // what is still to be taken: m_begin to m_end
  size_t m_end = 0;
  unsigned long long m_bytesRead = 0;
  char m_buffer[kBufferSize];
};

}  // namespace Ctl
