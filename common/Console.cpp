#include "common/Console.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <pthread.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>

#include "common/ScopedLock.h"

namespace Velk {
namespace {

thread_local bool t_neverWaits = false;

// A terminal with room for a part of a line takes that and then waits, whatever poll(2) said of it. So a
// thread that must not wait writes to it through a description of its own, which does not block. -1: no
// terminal.
int s_terminal = -1;

// Held while writing, so possibly for long: threads that never wait only try it. The second one guards the
// kept bytes, is held for a copy only, and is taken with or without the first.
Mutex s_writing;
Mutex s_keeping;

char s_kept[Console::kKeptBytes];
std::atomic<size_t> s_keptSize{0};

// True when a write of up to PIPE_BUF bytes does not block.
bool IsWritable() {
  pollfd out{STDOUT_FILENO, POLLOUT, 0};
  return poll(&out, 1, 0) != 0;  // an error or a hang-up does not block either
}

void WaitUntilWritable() {
  pollfd out{STDOUT_FILENO, POLLOUT, 0};
  poll(&out, 1, -1);
}

// Skips what a short write took. Returns the number of pieces left.
int Advance(iovec*& pieces, int count, size_t written) {
  while (count > 0 && written >= pieces->iov_len) {
    written -= pieces->iov_len;
    ++pieces;
    --count;
  }
  if (count > 0) {
    pieces->iov_base = static_cast<char*>(pieces->iov_base) + written;
    pieces->iov_len -= written;
  }
  return count;
}

void WriteAll(iovec* pieces, int count) {
  while (count > 0) {
    const ssize_t written = count == 1 ? write(STDOUT_FILENO, pieces->iov_base, pieces->iov_len)
                                       : writev(STDOUT_FILENO, pieces, count);
    if (written > 0) {
      count = Advance(pieces, count, static_cast<size_t>(written));
    } else if (written < 0 && errno == EAGAIN) {
      WaitUntilWritable();  // somebody made the descriptor non-blocking
    } else if (written == 0 || errno != EINTR) {
      return;
    }
  }
}

// How many of the kept bytes fit into most. Cut behind a line: another process may write before the rest.
size_t WholeLines(size_t size, size_t most) {
  if (size <= most) return size;
  const void* end = memrchr(s_kept, '\n', most);
  return end != nullptr ? static_cast<size_t>(static_cast<const char*>(end) - s_kept) + 1 : most;
}

size_t TakeKept(char* out, size_t most) {
  const ScopedLock lock(s_keeping);
  const size_t size = s_keptSize.load(std::memory_order_relaxed);
  const size_t taken = WholeLines(size, most);
  memcpy(out, s_kept, taken);
  memmove(s_kept, s_kept + taken, size - taken);
  s_keptSize.store(size - taken, std::memory_order_relaxed);
  return taken;
}

void Keep(const iovec* pieces, int count) {
  size_t length = 0;
  for (int i = 0; i < count; ++i) length += pieces[i].iov_len;
  const ScopedLock lock(s_keeping);
  size_t at = s_keptSize.load(std::memory_order_relaxed);
  if (length > Console::kKeptBytes - at) return;
  for (int i = 0; i < count; ++i) {
    memcpy(s_kept + at, pieces[i].iov_base, pieces[i].iov_len);
    at += pieces[i].iov_len;
  }
  s_keptSize.store(at, std::memory_order_relaxed);
}

bool HasKept() {
  return s_keptSize.load(std::memory_order_relaxed) != 0;
}

// Writes what the terminal takes. False: some is left, perhaps the rest of a line, which then goes before
// whatever comes next.
bool WriteKeptToTerminal() {
  const ScopedLock lock(s_keeping);
  size_t size = s_keptSize.load(std::memory_order_relaxed);
  while (size != 0) {
    const ssize_t written = write(s_terminal, s_kept, size);
    if (written <= 0) break;
    size -= static_cast<size_t>(written);
    memmove(s_kept, s_kept + written, size);
    s_keptSize.store(size, std::memory_order_relaxed);
  }
  return size == 0;
}

// Out of line: its buffer must not weigh on the stack of an ordinary line.
__attribute__((noinline)) bool WriteKept(bool mayWait) {
  if (!mayWait && s_terminal >= 0) return WriteKeptToTerminal();
  char chunk[PIPE_BUF];
  // Not what comes meanwhile: on a slow console there may be no end to it.
  size_t left = s_keptSize.load(std::memory_order_relaxed);
  while (left != 0 && HasKept()) {
    if (!mayWait && !IsWritable()) return false;
    iovec piece{chunk, TakeKept(chunk, std::min(left, sizeof chunk))};
    left -= piece.iov_len;
    WriteAll(&piece, 1);
  }
  return !HasKept();
}

// False: it would have had to wait.
bool FlushKept(bool mayWait) {
  return !HasKept() || WriteKept(mayWait);
}

// Called after keeping and after unlocking: whoever comes second sees what the other one did, so that no line
// is left behind between them.
void FlushWhatIsLeft(bool mayWait) {
  constexpr int kLooks = 2;  // the second for what was kept during the first
  bool isFlushed = true;
  for (int look = 0; look < kLooks && isFlushed; ++look) {
    // Adds nothing, but puts the two threads' looks into an order, as a mere load would not.
    if (s_keptSize.fetch_add(0) == 0 || pthread_mutex_trylock(s_writing.Native()) != 0) return;
    isFlushed = FlushKept(mayWait);
    pthread_mutex_unlock(s_writing.Native());
  }
}

void WriteWaiting(iovec* pieces, int count) {
  {
    const ScopedLock lock(s_writing);
    FlushKept(true);
    WriteAll(pieces, count);
  }
  FlushWhatIsLeft(true);
}

void WriteOrKeep(iovec* pieces, int count) {
  if (s_terminal < 0 && pthread_mutex_trylock(s_writing.Native()) == 0) {
    const bool isWritable = FlushKept(false) && IsWritable();
    if (isWritable) WriteAll(pieces, count);
    pthread_mutex_unlock(s_writing.Native());
    if (isWritable) return;
  }
  Keep(pieces, count);
  FlushWhatIsLeft(false);
}

constexpr size_t kJoinedBytes = 512;  // holds nearly every line

// Joins the pieces in buffer. Returns the length of the line, 0: too long, or empty.
size_t Join(const iovec* pieces, int count, char (&buffer)[kJoinedBytes]) {
  size_t length = 0;
  for (int i = 0; i < count; ++i) {
    if (pieces[i].iov_len > kJoinedBytes - length) return 0;
    memcpy(buffer + length, pieces[i].iov_base, pieces[i].iov_len);
    length += pieces[i].iov_len;
  }
  return length;
}

}  // namespace

void Console::WriteLine(const iovec* pieces, int count) {
  if (count > kMaxPieces) return;
  // Joining a line costs less than what the kernel does for each piece.
  char joined[kJoinedBytes];
  iovec own[kMaxPieces] = {{joined, Join(pieces, count, joined)}};
  if (own[0].iov_len != 0) {
    count = 1;
  } else {
    memcpy(own, pieces, static_cast<size_t>(count) * sizeof own[0]);  // short writes change the pieces
  }
  if (t_neverWaits) {
    WriteOrKeep(own, count);
  } else {
    WriteWaiting(own, count);
  }
}

void Console::NeverWaitOnThisThread() {
  t_neverWaits = true;
  if (s_terminal < 0 && isatty(STDOUT_FILENO) != 0)
    s_terminal = open("/proc/self/fd/1", O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
}

void Console::ForgetKept() {
  const ScopedLock lock(s_keeping);
  s_keptSize.store(0, std::memory_order_relaxed);
}

}  // namespace Velk
