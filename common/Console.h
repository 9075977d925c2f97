// Logging layer: standard output as a log line needs it.
#pragma once

#include <sys/uio.h>

#include <cstddef>

namespace Velk {

// Writes whole lines straight to descriptor 1, one system call a line, so that lines of different threads and
// processes do not mix. Any thread may call. A line that can't be written for good (closed, full device,
// reader gone) is lost and nobody is told; the caller has SIGPIPE ignored.
class Console {
 public:
  // Most pieces of one line.
  static constexpr int kMaxPieces = 8;

  // Bytes kept for threads that must not wait; some 100 lines. What does not fit any more is lost here.
  static constexpr size_t kKeptBytes = 16384;

  // Writes one line given in pieces. Where standard output stands still (a pipe whose reader does not read),
  // the caller waits, unless its thread never waits: then the line is kept, and goes out no later than with
  // the next line that anybody writes.
  static void WriteLine(const iovec* pieces, int count);

  // From now on the calling thread never waits in WriteLine; so do the threads' copies in forked children.
  // For threads that have better to do than to wait for a reader: the receive loop, the supervisor.
  // Standard output stays what it is from then on. A terminal is opened anew by way of /proc; without that it
  // is written like a pipe, and a thread may wait for it after all.
  static void NeverWaitOnThisThread();

  // Drops the kept lines. A forked child calls it, because its parent keeps and writes the same ones.
  static void ForgetKept();
};

}  // namespace Velk
