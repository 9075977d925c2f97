#include "app/MonitorChild.h"

#include <errno.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include "common/LogPrinter.h"

namespace {

// Makes the kernel kill the child when the supervisor ends. An orphan would hold the port that the
// next supervisor's child needs.
void DieWithSupervisor(pid_t supervisor) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  // The supervisor may have ended before prctl(2). A parent of 0 is in another PID namespace.
  const pid_t parent = getppid();
  if (parent != supervisor && parent != 0) _exit(1);
}

// In shared memory: whether the current child has received a datagram. Null: no shared memory.
volatile bool* s_hasServed = nullptr;

// False: the child was killed from outside.
bool HasEndedByItself(int status) {
  if (WIFEXITED(status)) return true;
  const int signals[] = {SIGABRT, SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGSYS};
  for (const int number : signals) {
    if (WTERMSIG(status) == number) return true;
  }
  return false;
}

// Pauses after a child that ended by itself without serving: 10 ms, doubling up to one second. A child that
// cannot serve (port taken, no memory for a thread, system call filtered) ends at once: without pauses it
// would be restarted a thousand times a second.
class Pace {
 public:
  void Wait(int status) {
    if (s_hasServed == nullptr || *s_hasServed || !HasEndedByItself(status)) {
      m_pauseMs = kFirstMs;
      return;
    }
    usleep(m_pauseMs * 1000);
    m_pauseMs = m_pauseMs * 2 < kMostMs ? m_pauseMs * 2 : kMostMs;
  }

 private:
  static constexpr unsigned kFirstMs = 10;
  static constexpr unsigned kMostMs = 1000;
  unsigned m_pauseMs = kFirstMs;
};

pid_t WaitFor(pid_t child, int* status) {
  pid_t ended;
  do {
    ended = waitpid(child, status, 0);
  } while (ended < 0 && errno == EINTR);
  return ended;
}

}  // namespace

void ReportServing() {
  if (s_hasServed != nullptr) *s_hasServed = true;
}

bool MonitorChild() {
  LogPrinter* const log = LogPrinter::Instance();
  const pid_t self = getpid();
  // If a start script left SIGCHLD ignored, waitpid(2) would fail.
  signal(SIGCHLD, SIG_DFL);
  void* const page =
      mmap(nullptr, sizeof *s_hasServed, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (page != MAP_FAILED) s_hasServed = static_cast<bool*>(page);
  Pace pace;
  for (;;) {
    if (s_hasServed != nullptr) *s_hasServed = false;
    log->Log(Info, nullptr, "Start child...\n");
    const pid_t child = fork();
    if (child < 0) {
      log->Log(Error, nullptr, "fork() failed!\n");
      return false;
    }
    if (child == 0) {
      DieWithSupervisor(self);
      log->Log(Info, nullptr, "Child process...\n");
      return true;
    }
    log->Log(Info, nullptr, "Wait for child %d...\n", child);
    int status = 0;
    const pid_t ended = WaitFor(child, &status);
    if (ended != child) {
      log->Log(Error, nullptr, "Waitpid returned %d instead of %d! Exiting...\n", ended, child);
      exit(1);
    }
    // The raw status word: programs that watch the console match it.
    log->Log(Info, nullptr, "Child exited with code %d, restarting...\n", status);
    pace.Wait(status);
  }
}
