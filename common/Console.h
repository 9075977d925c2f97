// Logging layer: writes log lines to standard output.
#pragma once

#include <sys/uio.h>

namespace Velk {

// Writes whole lines to descriptor 1 under the lock of stdout. Any thread may call. A line is lost on a
// permanent error (closed, device full, reader gone). SIGPIPE must be ignored.
class Console {
 public:
  // Writes a line, given in pieces, after flushing stdout. Lines of different threads never mix, lines of
  // different processes only if longer than PIPE_BUF. Blocks while a pipe or terminal is full. On a thread
  // that never waits, drops the line instead; a warning before the next line tells how many.
  static void WriteLine(const iovec* pieces, int count);

  // From now on, WriteLine() neither blocks nor flushes stdout on this thread and in children that it forks.
  // A child counts dropped lines from 0. Call it once per thread; do not redirect standard output afterwards.
  // The warning names module, which must stay valid. Reopens a pipe or terminal, non-blocking, through /proc;
  // if that fails, WriteLine() polls before each line, and a terminal may still block.
  static void NeverWaitOnThisThread(const char* module);
};

}  // namespace Velk
