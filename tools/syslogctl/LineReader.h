// Tool layer: standard input as lines.
#pragma once

#include <cstddef>

namespace Ctl {

// Splits what a descriptor delivers into lines. Returns a line longer than mostLength bytes in pieces, cut
// between UTF-8 characters, so that the buffer need not hold a whole line.
class LineReader {
 public:
  static constexpr size_t kMostLength = 16384;

  explicit LineReader(int fd, size_t mostLength = kMostLength) : m_fd(fd), m_mostLength(mostLength) {}

  // The next buffered line or piece, without its line feed; valid until the next Read(). False: call Read(),
  // unless AtEnd().
  bool Next(const char** text, size_t* length);

  // One read(2), which may block. False: it failed, see errno.
  bool Read();

  // All input was read and returned by Next().
  bool AtEnd() const { return m_ended && m_begin == m_end; }

  unsigned long long BytesRead() const { return m_bytesRead; }

 private:
  static constexpr size_t kBufferSize = 2 * kMostLength;

  int m_fd;  // not owned
  size_t m_mostLength;
  bool m_ended = false;
  size_t m_begin = 0;  // not yet returned: m_begin to m_end
  size_t m_end = 0;
  unsigned long long m_bytesRead = 0;
  char m_buffer[kBufferSize];
};

}  // namespace Ctl
