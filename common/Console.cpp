#include "common/Console.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <stdio.h>
#include <stdio_ext.h>
#include <string.h>
#include <unistd.h>

#include <atomic>

#include "common/ThreadId.h"
#include "common/TimeStamp.h"

namespace Velk {
namespace {

constexpr int kMaxTries = 10;  // more than one: a terminal also seems full while another writer uses it
thread_local bool t_neverWaits = false;
// A thread that never waits uses its own non-blocking open file description. poll(2) alone is not enough: a
// terminal takes the part of a line that fits and then blocks, and another process may fill the pipe after
// poll(2).
thread_local int t_fd = STDOUT_FILENO;

const char* s_module = "";
std::atomic<unsigned> s_dropped{0};
std::atomic<bool> s_isTorn{false};  // the output does not end with a line feed

bool IsWritable(int timeoutMs) {
  pollfd out{STDOUT_FILENO, POLLOUT, 0};
  return poll(&out, 1, timeoutMs) != 0;  // a write after an error or hang-up does not block either
}

// False: drop the line; the lock's owner is blocked on the reader.
bool Lock() {
  if (!t_neverWaits) flockfile(stdout);
  for (int tries = 0; t_neverWaits && ftrylockfile(stdout) != 0; sched_yield())
    if (!IsWritable(0) && ++tries == kMaxTries) return false;
  return true;
}

// False: the line is dropped, perhaps partly written.
bool Write(const void* text, size_t size) {
  const auto* const bytes = static_cast<const char*>(text);
  for (size_t done = 0, tries = 0; done < size;) {
    const ssize_t written = write(t_fd, bytes + done, size - done);
    if (written > 0) {
      done += static_cast<size_t>(written);
      s_isTorn.store(bytes[done - 1] != '\n', std::memory_order_relaxed);
    } else if (written == 0 || (errno != EAGAIN && errno != EINTR)) {
      return true;  // a permanent error: lost, but not counted as dropped
    } else if (!t_neverWaits) {
      IsWritable(-1);
    } else if (sched_yield(); ++tries == kMaxTries) {
      return false;
    }
  }
  return true;
}

// Flushes stdout if we may wait, and writes the warning about dropped lines, if any. False: drop the line.
bool WriteWhatGoesFirst() {
  if (!t_neverWaits && __fpending(stdout) != 0) fflush_unlocked(stdout);
  if (t_neverWaits && t_fd == STDOUT_FILENO && !IsWritable(0)) return false;
  const unsigned dropped = s_dropped;
  if (dropped == 0) return true;
  char line[160] = "\n";  // ends an unfinished line
  snprintf(TimeStamp::Put(line + 1), 128, "[#%4ld] %.64s.Warning: Console lines dropped here: %u\n",
           ThreadId(), s_module, dropped);
  const char* const warning = line + (s_isTorn ? 0 : 1);
  if (!Write(warning, strlen(warning))) return false;
  s_dropped -= dropped;  // not = 0: another thread may have dropped more since
  return true;
}

}  // namespace

void Console::WriteLine(const iovec* pieces, int count) {
  const bool isLocked = Lock();
  bool isWritten = isLocked && WriteWhatGoesFirst();
  // Joins the pieces: copying costs less than the kernel's work per piece in writev(2).
  char joined[PIPE_BUF];
  size_t length = 0;
  for (int i = 0; i < count && isWritten; ++i) {
    if (pieces[i].iov_len <= sizeof joined - length) {
      memcpy(joined + length, pieces[i].iov_base, pieces[i].iov_len);
      length += pieces[i].iov_len;
    } else {
      isWritten = Write(joined, length) && Write(pieces[i].iov_base, pieces[i].iov_len);
      length = 0;
    }
  }
  if (!isWritten || !Write(joined, length)) ++s_dropped;
  if (isLocked) funlockfile(stdout);
}

void Console::NeverWaitOnThisThread(const char* module) {
  s_module = module;
  t_neverWaits = true;
  pthread_atfork(nullptr, nullptr, [] { s_dropped = s_isTorn = false; });
  // A regular file has a position, which a second description would not share.
  if (lseek(STDOUT_FILENO, 0, SEEK_CUR) >= 0) return;
  const int own = open("/proc/self/fd/1", O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  if (own >= 0) t_fd = own;
}

}  // namespace Velk
