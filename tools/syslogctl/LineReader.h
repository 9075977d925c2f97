// Tool layer: standard input as lines.
#pragma once

#include <cstddef>

namespace Ctl {

// Lines of a descriptor. One longer than mostLength bytes comes in several pieces, cut between UTF-8
// characters. Holds 32 KiB whatever the length of a line.
class LineReader {
 public:
  static constexpr size_t kMostLength = 16384;

  explicit LineReader(int fd, size_t mostLength = kMostLength) : m_fd(fd), m_mostLength(mostLength) {}

  // The next line or piece that is there already, without its line feed; valid until the next Read(). False:
  // Read() is needed, or AtEnd().
  bool Next(const char** text, size_t* length);

  // One read(2), which may block. False: it failed, errno says why.
  bool Read();

  // Everything was read and taken.
  bool AtEnd() const { return m_ended && m_begin == m_end; }

  unsigned long long BytesRead() const { return m_bytesRead; }

 private:
  static constexpr size_t kBufferSize = 2 * kMostLength;

  int m_fd;  // not owned
  size_t m_mostLength;
  bool m_ended = false;
  size_t m_begin = 0;  // what is still to be taken: m_begin to m_end
  size_t m_end = 0;
  unsigned long long m_bytesRead = 0;
  char m_buffer[kBufferSize];
};

}  // namespace Ctl
