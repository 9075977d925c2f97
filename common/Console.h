// Logging layer: writes log lines to standard output.
#pragma once

#include <sys/uio.h>

namespace Velk {

// Writes whole lines to descriptor 1, each with one system call, under the lock of stdout. Any thread may
// call. A line is lost on a permanent error (closed, device full, reader gone). SIGPIPE must be ignored.
class Console {
 public:
  // Writes a line, given in pieces, after flushing stdout. Lines of threads never mix; lines of processes
  // do not mix up to PIPE_BUF bytes. Blocks while a pipe or terminal is full. On a thread that never waits,
  // drops the line instead; a warning with the number of dropped lines precedes the next line written.
  static void WriteLine(const iovec* pieces, int count);

  // Makes WriteLine() on this thread, and in children it forks, neither block nor flush stdout. A child
  // counts dropped lines from 0. Call it once per thread, and do not redirect standard output afterwards.
  // module is for the warning and must stay valid. Opens a pipe or terminal again through /proc, without
  // blocking; if that fails, WriteLine() polls before each line, and a terminal may still block.
  static void NeverWaitOnThisThread(const char* module);
};

}  // namespace Velk
