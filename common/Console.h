// Logging layer: standard output as a log line needs it.
#pragma once

#include <sys/uio.h>

namespace Velk {

// Writes whole lines to descriptor 1, one system call each, under the lock of stdout. Any thread may call.
// A line that can't be written for good (closed, full device, reader gone) is lost. SIGPIPE must be ignored.
class Console {
 public:
  // Writes a line given in pieces, after what the program itself printed to stdout. Lines do not mix, those
  // of several processes up to PIPE_BUF bytes. Blocks while a pipe or a terminal is full, unless the thread
  // never waits: then the line is dropped, and before the next one that gets through comes a warning with the
  // count.
  static void WriteLine(const iovec* pieces, int count);

  // From now on WriteLine neither blocks on this thread nor flushes stdout, here and in forked children,
  // which count from 0. Call once a thread; leave standard output as it is then. module is for the warning
  // and must stay alive. A pipe or terminal is opened again by way of /proc; where that fails it is polled
  // before each line, and a terminal may block all the same.
  static void NeverWaitOnThisThread(const char* module);
};

}  // namespace Velk
